#include "records/compatibilityrecords.h"
#include "records/devicerecords.h"
#include "support/jsoncomparison.h"
#include "support/randomrecord.h"

#include <QByteArray>
#include <QTest>

#include <string>
#include <vector>

using namespace Velmar::ProtoModel::Auxiliary;

namespace {

// What a text may hold that the reader has a rule for.
const std::vector<std::string> Fragments = { "{",
                                             "}",
                                             "[",
                                             "]",
                                             ":",
                                             ",",
                                             "\"",
                                             "\\",
                                             "/",
                                             "*",
                                             "//",
                                             "/*",
                                             "*/",
                                             "\n",
                                             "\r\n",
                                             "\t",
                                             " ",
                                             "    ",
                                             "-",
                                             "+",
                                             ".",
                                             "e",
                                             "E-",
                                             "e+5",
                                             "0",
                                             "9",
                                             "1.5",
                                             "-1.9",
                                             "1e3",
                                             "2.01e2",
                                             "1e400",
                                             "1e-400",
                                             "true",
                                             "TrUe",
                                             "false",
                                             "null",
                                             "\"true\"",
                                             "\"12\"",
                                             "\"-5\"",
                                             "\"\"",
                                             "\"{\"",
                                             "\":\"",
                                             "\",\"",
                                             "\"]x\"",
                                             "\"}\"",
                                             "abc",
                                             "\\u0041",
                                             "\\uD83D",
                                             "\\q",
                                             "\v",
                                             "\f",
                                             "\x80",
                                             "\xC3\xA9",
                                             "{}",
                                             "[]",
                                             "[{}]",
                                             ",\n    ",
                                             "x:",
                                             "\"x\":",
                                             "18446744073709551617",
                                             "\"99999999999999999999\"",
                                             "\"rate\":",
                                             "\"result\" :",
                                             "\"version\": ",
                                             "\"code\":",
                                             "\"sections\":[" };

// The text with other blanks between its tokens; indented is what devices do.
std::string spread(RandomRecord &random, const std::string &json)
{
    const std::uint32_t style = random.upTo(3);
    const std::string lineFeed = style == 2 ? "\r\n" : "\n";
    const std::uint32_t width = 1 + random.upTo(8);
    std::string text;
    std::size_t depth = 0;
    bool isQuoted = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char character = json[i];
        if (character == '"' && (i == 0 || json[i - 1] != '\\'))
            isQuoted = !isQuoted;
        const bool closes = !isQuoted && (character == '}' || character == ']');
        const bool opens = !isQuoted && (character == '{' || character == '[');
        if (closes && depth > 0)
            --depth;
        if (opens)
            ++depth;
        const std::string line = lineFeed + std::string(depth * width, ' ');
        if (style == 0) {
            text += character;
        } else if (style == 3 && !isQuoted && random.upTo(5) == 0) {
            text +=
                std::string(random.upTo(3), ' ') + character + std::string(random.upTo(40), ' ');
        } else {
            text += closes ? line + character : std::string(1, character);
            if (opens || (!isQuoted && character == ','))
                text += line;
            else if (!isQuoted && character == ':')
                text += ' ';
        }
    }
    return text;
}

void damage(RandomRecord &random, std::string &text)
{
    for (std::uint32_t changes = random.upTo(3); changes > 0; --changes) {
        const std::size_t place = random.upTo(static_cast<std::uint32_t>(text.size()));
        const std::size_t length = random.upTo(6);
        switch (random.upTo(4)) {
        case 0:
            text.erase(place, length);
            break;
        case 1:
            text.insert(
                place,
                text.substr(random.upTo(static_cast<std::uint32_t>(text.size())), 3 * length));
            break;
        case 2:
            text.resize(place);
            break;
        default:
            const auto last = static_cast<std::uint32_t>(Fragments.size() - 1);
            text.replace(place, random.upTo(1) * length, Fragments[random.upTo(last)]);
        }
    }
}

} // namespace

// The reader has short cuts for how devices write. Here it is held against a reader without any.
class tst_JsonReference : public QObject
{
    Q_OBJECT

private:
    template<class Document> void compare(std::uint32_t seed)
    {
        for (std::uint32_t i = 0; i < 600; ++i) {
            RandomRecord random(seed + i);
            Document document {};
            random.fill(document);
            std::string text;
            ajson::encodeJson(text, document);
            text = spread(random, text);
            damage(random, text);
            const std::string difference = differenceInReading<Document>(text);
            if (!difference.empty())
                QFAIL((difference + "\n" + text).c_str());
        }
    }

private Q_SLOTS:
    void deviceVersion() { compare<s_DeviceVersion>(100000); }
    void progress() { compare<s_UpgradePercent>(200000); }
    void olderProgress() { compare<std::vector<s_CompatibilityUpgradePercent>>(300000); }
    void request() { compare<s_UpgradeDetail>(400000); }
    void olderRequest() { compare<std::vector<s_CompatibilityUpgradeDetail>>(500000); }

    // In the places where a record's walk takes a turn.
    void everyPairOfFragments()
    {
        for (const char *const begin : { "{", "{\"rate\":", "{\"rate\":1", "{\"rate\":1,",
                                         "{\"parts\":[{\"section\":[{\"code\":1}" }) {
            for (const std::string &first : Fragments) {
                for (const std::string &second : Fragments) {
                    const std::string text = begin + first + second + " ,\"result\":2}";
                    const std::string difference = differenceInReading<s_UpgradePercent>(text);
                    if (!difference.empty())
                        QFAIL((difference + "\n" + text).c_str());
                }
            }
        }
    }
};

QTEST_APPLESS_MAIN(tst_JsonReference)
#include "tst_jsonreference.moc"
