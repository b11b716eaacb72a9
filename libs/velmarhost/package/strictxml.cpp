#include "package/strictxml.h"

#include "package/packagename.h"
#include "package/xmltraps.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr qint64 LargestFile = 16 * 1024 * 1024;
constexpr int DeepestNesting = 16;

constexpr char NoFile[] = "no-file";
constexpr char TooLarge[] = "too-large";

ListedFault fault(const char *code, const QString &file, const QString &text, int line = 0)
{
    return { QLatin1String(code), file, line, text };
}

std::optional<ListedFault> readWhole(const QString &package, const QString &file, QByteArray &text)
{
    const QString path = package + QLatin1Char('/') + file;
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(path).isFile())
        return fault(NoFile, file, QStringLiteral("There is no such file."));
    QFile source(path);
    if (!source.open(QIODevice::ReadOnly))
        return fault("unreadable", file, source.errorString());
    text = source.read(LargestFile + 1);
    if (source.error() != QFileDevice::NoError)
        return fault("unreadable", file, source.errorString());
    if (text.size() > LargestFile)
        return fault(TooLarge, file, QStringLiteral("The file is larger than 16 MiB."));
    return std::nullopt;
}

int lineAt(const QByteArray &text, int position)
{
    return 1 + int(std::count(text.begin(), text.begin() + position, '\n'));
}

int lineOfBadUtf8(const QByteArray &text)
{
    int begin = 0;
    for (int line = 1;; ++line) {
        const int end = text.indexOf('\n', begin);
        if (end < 0 || !isUtf8(QByteArray::fromRawData(text.constData() + begin, end - begin)))
            return line;
        begin = end + 1;
    }
}

} // namespace

std::optional<ListedFault> readStrictXml(const QString &package, const QString &file,
                                         XmlAccount &account, const XmlTokenReader &readToken)
{
    QByteArray text;
    if (const auto unread = readWhole(package, file, text))
        return unread;
    if (!account.addBytes(text.size()))
        return fault("too-many-bytes", file,
                     QStringLiteral("The package's XML files have more than %1 bytes.")
                         .arg(account.allowance().bytes));
    if (text.startsWith("\xEF\xBB\xBF")) // says that UTF-8 follows
        text.remove(0, 3);
    if (!isUtf8(text))
        return fault("not-utf-8", file, QStringLiteral("The file is not in UTF-8."),
                     lineOfBadUtf8(text));
    if (const auto trap = findXmlTrap(text))
        return fault(trap->code, file, trap->text, lineAt(text, trap->position));
    QXmlStreamReader xml(text);
    xml.setNamespaceProcessing(false);
    const char *code = "not-xml";
    int depth = 0;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartDocument() && !xml.documentEncoding().isEmpty()
            && xml.documentEncoding().compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) != 0) {
            code = "not-utf-8";
            xml.raiseError(QStringLiteral("The file says that it is in %1 instead of UTF-8.")
                               .arg(xml.documentEncoding()));
        } else if (xml.isDTD()) {
            code = "document-type";
            xml.raiseError(QStringLiteral("A document type is not allowed."));
        } else if (xml.isStartElement() && ++depth > DeepestNesting) {
            code = "too-deep";
            xml.raiseError(QStringLiteral("Elements are nested more than 16 deep."));
        } else if (xml.isStartElement() && !account.addElement()) {
            code = "too-many-elements";
            xml.raiseError(QStringLiteral("The package's XML files have more than %1 elements.")
                               .arg(account.allowance().elements));
        } else if (xml.isStartElement() || xml.isCharacters() || xml.isProcessingInstruction()) {
            readToken(xml, depth);
        } else if (xml.isEndElement()) {
            readToken(xml, depth--);
        }
    }
    if (!xml.hasError())
        return std::nullopt;
    return fault(code, file, xml.errorString(), int(xml.lineNumber()));
}

QString faultLine(const QString &package, const ListedFault &fault)
{
    const QString path = package + QLatin1Char('/') + fault.file;
    if (fault.code == QLatin1String(NoFile))
        return QStringLiteral("there is no file %1").arg(path);
    if (fault.code == QLatin1String(TooLarge))
        return QStringLiteral("%1 is larger than 16 MiB").arg(path);
    if (fault.line == 0)
        return QStringLiteral("%1: %2").arg(path, fault.text);
    return QStringLiteral("%1:%2: %3").arg(path, QString::number(fault.line), fault.text);
}

} // namespace Velmar::Host
