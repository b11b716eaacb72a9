#include "package/xmltraps.h"

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr int MostAttributes = 64; // packages need 9
constexpr uint LastOf16Bits = 0xFFFF;

// A parser takes a text with a zero in its first two bytes for UTF-16, and each zero is UTF-8.
std::optional<XmlTrap> findWideText(const QByteArray &xml)
{
    if (!xml.left(2).contains('\0'))
        return std::nullopt;
    return XmlTrap { "not-utf-8", 0, QStringLiteral("The file is not in UTF-8.") };
}

// The upgrade library drops each from the index before that is parsed, so that "?\r>" ends what it
// does not end here.
std::optional<XmlTrap> findCarriageReturn(const QByteArray &xml)
{
    for (int at = xml.indexOf('\r'); at >= 0; at = xml.indexOf('\r', at + 1)) {
        if (at + 1 == xml.size() || xml[at + 1] != '\n')
            return XmlTrap { "carriage-return", at,
                             QStringLiteral("A carriage return stands without a line feed.") };
    }
    return std::nullopt;
}

bool isHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f')
        || (character >= 'A' && character <= 'F');
}

// Of these the upgrade library's parser keeps the low 16 bits, which may be another character.
std::optional<XmlTrap> findWideReference(const QByteArray &xml)
{
    const QByteArray begin("&#");
    for (int at = xml.indexOf(begin); at >= 0; at = xml.indexOf(begin, at + 1)) {
        int digits = at + begin.size();
        const bool isHex = digits < xml.size() && xml[digits] == 'x';
        digits += isHex ? 1 : 0;
        const auto end = std::find_if_not(xml.begin() + digits, xml.end(), &isHexDigit);
        bool isNumber = false; // what is none, every parser refuses
        const uint number =
            xml.mid(digits, int(end - xml.begin()) - digits).toUInt(&isNumber, isHex ? 16 : 10);
        if (isNumber && number > LastOf16Bits)
            return XmlTrap { "character-reference", at,
                             QStringLiteral("A number stands for a character beyond U+FFFF.") };
    }
    return std::nullopt;
}

/*! Goes over the tags of a text, and over all that only looks like one. */
class TagWalk
{
public:
    explicit TagWalk(const QByteArray &xml)
        : m_xml(xml)
    {
    }

    // A parser compares each attribute of an element with each other one before it shows any.
    std::optional<XmlTrap> findCrowdedTag()
    {
        for (int at = m_xml.indexOf('<'); at >= 0; at = m_xml.indexOf('<', m_end)) {
            if (startsAt(at, "<!--"))
                skip(at + 4, "-->");
            else if (startsAt(at, "<![CDATA["))
                skip(at + 9, "]]>");
            else if (startsAt(at, "<?"))
                skip(at + 2, "?>");
            else if (startsAt(at, "<!"))
                return std::nullopt; // a document type, with which every parse ends
            else if (countAttributes(at) > MostAttributes)
                return XmlTrap {
                    "too-many-attributes", at,
                    QStringLiteral("An element has more than %1 attributes.").arg(MostAttributes)
                };
        }
        return std::nullopt;
    }

private:
    bool startsAt(int at, const char *mark) const
    {
        return qstrncmp(m_xml.constData() + at, mark, uint(qstrlen(mark))) == 0;
    }

    void skip(int from, const char *mark)
    {
        const int at = m_xml.indexOf(mark, from);
        m_end = at < 0 ? m_xml.size() : at + int(qstrlen(mark));
    }

    // By their values: in quotes, in which a ">" does not end the tag.
    int countAttributes(int at)
    {
        int count = 0;
        char quote = '\0';
        for (m_end = at + 1; m_end < m_xml.size(); ++m_end) {
            const char character = m_xml[m_end];
            if (quote != '\0') {
                if (character == quote)
                    quote = '\0';
            } else if (character == '"' || character == '\'') {
                quote = character;
                ++count;
            } else if (character == '>') {
                break;
            }
        }
        return count;
    }

    const QByteArray &m_xml;
    int m_end = 0; // behind what was looked at last
};

} // namespace

std::optional<XmlTrap> findXmlTrap(const QByteArray &xml)
{
    auto trap = findWideText(xml);
    if (!trap)
        trap = findCarriageReturn(xml);
    if (!trap)
        trap = findWideReference(xml);
    return trap ? trap : TagWalk(xml).findCrowdedTag();
}

} // namespace Velmar::Host
