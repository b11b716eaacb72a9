#include <jsontext/jsontext.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <vector>

namespace Velmar {

namespace {

// A list or an object that the walk is in.
struct Level {
    bool isObject;
    bool awaitsKey; // in an object, between "{" or "," and ":"
    int index; // in a list
    QSet<QString> keys; // of an object, so far
};

// The offset behind the string that begins at offset.
int endOfString(const QByteArray &json, int offset)
{
    ++offset;
    while (offset < json.size() && json.at(offset) != '"')
        offset += json.at(offset) == '\\' ? 2 : 1;
    return std::min(offset + 1, json.size());
}

// Whether byte is of a number or of a word such as true.
bool isScalar(char byte)
{
    return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || byte == 'E'
        || byte == '-' || byte == '+' || byte == '.';
}

QString textOfString(const QByteArray &quoted)
{
    if (!quoted.contains('\\'))
        return QString::fromUtf8(quoted.constData() + 1, quoted.size() - 2);
    return QJsonDocument::fromJson('[' + quoted + ']').array().at(0).toString();
}

} // namespace

JsonText::JsonText(const QByteArray &json)
    : m_json(json)
{
}

int JsonText::lineAt(int offset) const
{
    const auto end = m_json.cbegin() + std::clamp(offset, 0, m_json.size());
    return 1 + int(std::count(m_json.cbegin(), end, '\n'));
}

int JsonText::lineOf(const JsonPath &path) const
{
    int offset = m_json.size();
    if (path.isEmpty())
        offset = m_json.indexOf('{');
    walk([&](const Place &place) {
        if (place.path != path)
            return true;
        offset = place.offset;
        return false;
    });
    return lineAt(offset);
}

JsonPath JsonText::repeatedKey(int &line) const
{
    JsonPath path;
    walk([&](const Place &place) {
        if (!place.isRepeated)
            return true;
        path = place.path;
        line = lineAt(place.offset);
        return false;
    });
    return path;
}

void JsonText::walk(const std::function<bool(const Place &)> &visit) const
{
    std::vector<Level> levels;
    JsonPath path;

    // A value of a list is visited here, one of an object at its key.
    const auto beginValue = [&](int offset) {
        if (levels.empty() || levels.back().isObject)
            return true;
        path.append(QString::number(levels.back().index));
        return visit({ path, offset, false });
    };
    const auto endValue = [&] {
        if (!path.isEmpty()) // the topmost value has no path
            path.removeLast();
    };

    int offset = 0;
    while (offset < m_json.size()) {
        const char byte = m_json.at(offset);
        switch (byte) {
        case '{':
        case '[':
            if (!beginValue(offset))
                return;
            levels.push_back({ byte == '{', byte == '{', 0, {} });
            ++offset;
            break;
        case '}':
        case ']':
            levels.pop_back();
            endValue();
            ++offset;
            break;
        case ',':
            levels.back().awaitsKey = levels.back().isObject;
            ++levels.back().index;
            ++offset;
            break;
        case '"': {
            const int end = endOfString(m_json, offset);
            if (levels.back().awaitsKey) {
                Level &object = levels.back();
                object.awaitsKey = false;
                const QString key = textOfString(m_json.mid(offset, end - offset));
                const bool isRepeated = object.keys.contains(key);
                object.keys.insert(key);
                path.append(key);
                if (!visit({ path, offset, isRepeated }))
                    return;
            } else {
                if (!beginValue(offset))
                    return;
                endValue();
            }
            offset = end;
            break;
        }
        default:
            if (!isScalar(byte)) { // white space, a colon, a byte order mark
                ++offset;
                break;
            }
            if (!beginValue(offset))
                return;
            endValue();
            while (offset < m_json.size() && isScalar(m_json.at(offset)))
                ++offset;
        }
    }
}

} // namespace Velmar
