#include "show/redaction.h"

#include "show/printable.h"

#include <QDebug>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QUrl>

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr QChar Ellipsis(0x2026); // ends what printable() has cut
constexpr int ShortestRest = 4; // characters of a cut text that still tell something

bool isStable(const QString &name)
{
    static const QStringList names = {
        QStringLiteral("event"), QStringLiteral("phase"), QStringLiteral("code"),
        QStringLiteral("kind"),  QStringLiteral("run"),   QStringLiteral("time"),
    };
    return names.contains(name);
}

QString quoted(const QString &text)
{
    QString written;
    QDebug(&written).nospace() << text;
    return written.mid(1, written.size() - 2);
}

bool isPathText(const QString &text)
{
    return text.startsWith(QLatin1Char('/'));
}

} // namespace

void Redaction::hide(const QString &placeholder, const QString &text)
{
    QStringList texts { text };
    if (isPathText(text))
        texts.append(QFileInfo(text).canonicalFilePath());
    const QString shown = QStringLiteral("<%1>").arg(placeholder);
    for (QString one : texts) {
        while (one.endsWith(QLatin1Char('/')))
            one.chop(1);
        if (one.isEmpty())
            continue;
        add(one, shown);
        add(quoted(one), shown);
        add(printable(one, one.size()), shown);
        if (isPathText(one))
            add(QString::fromLatin1(QUrl::fromLocalFile(one).toEncoded()).mid(7), shown);
    }
}

void Redaction::add(const QString &text, const QString &shown)
{
    if (std::any_of(m_hidden.begin(), m_hidden.end(),
                    [&text](const Hidden &hidden) { return hidden.text == text; }))
        return;
    const auto place =
        std::find_if(m_hidden.begin(), m_hidden.end(),
                     [&text](const Hidden &hidden) { return hidden.text.size() < text.size(); });
    m_hidden.insert(place, { text, shown, isPathText(text) });
}

const Redaction::Hidden *Redaction::at(const QString &text, int place) const
{
    const auto rest = text.midRef(place);
    for (const auto &hidden : m_hidden) {
        if (!rest.startsWith(hidden.text))
            continue;
        const bool endsHere =
            rest.size() == hidden.text.size() || !rest.at(hidden.text.size()).isLetterOrNumber();
        const bool beginsHere =
            hidden.isPath || place == 0 || !text.at(place - 1).isLetterOrNumber();
        if (beginsHere && endsHere)
            return &hidden;
    }
    return nullptr;
}

QString Redaction::applied(const QString &text) const
{
    QString told = text;
    if (text.endsWith(Ellipsis)) {
        // The longest rest first: a shorter one is the beginning of a longer one.
        const auto whole = text.leftRef(text.size() - 1);
        int longest = 0;
        const Hidden *cut = nullptr;
        for (const auto &hidden : m_hidden) {
            for (int size = qMin(hidden.text.size(), whole.size());
                 size > longest && size >= ShortestRest; --size) {
                if (whole.endsWith(hidden.text.leftRef(size))) {
                    longest = size;
                    cut = &hidden;
                    break;
                }
            }
        }
        if (cut)
            told = text.left(whole.size() - longest) + cut->shown + Ellipsis;
    }
    if (std::none_of(m_hidden.begin(), m_hidden.end(),
                     [&told](const Hidden &hidden) { return told.contains(hidden.text); }))
        return told;
    QString result;
    for (int i = 0; i < told.size();) {
        if (const auto *hidden = at(told, i)) {
            result += hidden->shown;
            i += hidden->text.size();
        } else {
            result += told.at(i);
            ++i;
        }
    }
    return result;
}

QJsonValue Redaction::applied(const QJsonValue &value) const
{
    if (value.isString())
        return applied(value.toString());
    if (value.isArray()) {
        QJsonArray told;
        for (const auto &element : value.toArray())
            told.append(applied(element));
        return told;
    }
    if (value.isObject()) {
        const auto object = value.toObject();
        QJsonObject told;
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString name =
                member.key().contains(QLatin1Char('/')) ? applied(member.key()) : member.key();
            const bool isWord = isStable(name) && member.value().isString();
            told.insert(name,
                        isWord ? QJsonValue(member.value()) : applied(QJsonValue(member.value())));
        }
        return told;
    }
    return value;
}

} // namespace Velmar::Host
