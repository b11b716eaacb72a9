#include "uploadreader.h"

#include "durable.h"

#include <QJsonObject>

#include <array>

namespace Velmar::Simulator {

namespace {

constexpr std::size_t MaxTextSize = 1 << 20;

/*! What the headers of a part have to say. */
struct Expected {
    const char *name;
    const char *fileName;
    const char *contentType;
};

// The names are fixed, whatever the host uploads.
constexpr std::array<Expected, 2> Parts { {
    { "file", "file.jpg", "application/octet-stream" },
    { "text", "text.text", "multipart/form-data" },
} };
constexpr int FilePart = 1; // counted from 1
constexpr int TextPart = 2;

} // namespace

UploadReader::UploadReader(const QString &path)
    : m_file(path)
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        fail(QString::fromLatin1("the file cannot be stored: %1").arg(m_file.errorString()));
}

UploadReader::~UploadReader()
{
    m_file.remove();
}

void UploadReader::beginPart(const std::string &name, const std::string &fileName,
                             const std::string &contentType)
{
    m_parts.append({ QString::fromStdString(name), QString::fromStdString(fileName),
                     QString::fromStdString(contentType), 0 });
    const auto index = std::size_t(m_parts.size()) - 1;
    if (index >= Parts.size()) {
        fail(QString::fromLatin1("the upload has more than two parts"));
        return;
    }
    const Expected &expected = Parts.at(index);
    if (name != expected.name || fileName != expected.fileName
        || contentType != expected.contentType)
        fail(QString::fromLatin1("part %1 is not \"%2\", \"%3\", %4")
                 .arg(m_parts.size())
                 .arg(QLatin1String(expected.name), QLatin1String(expected.fileName),
                      QLatin1String(expected.contentType)));
}

void UploadReader::take(const char *bytes, std::size_t count)
{
    m_received += qint64(count);
    if (!m_parts.isEmpty())
        m_parts.last().size += qint64(count);
    if (!m_fault.isEmpty())
        return;
    if (m_parts.size() == FilePart) {
        m_hash.addData(bytes, int(count));
        if (m_file.write(bytes, qint64(count)) != qint64(count))
            fail(QString::fromLatin1("the file cannot be stored: %1").arg(writeFault(m_file)));
    } else if (m_parts.size() == TextPart) {
        if (m_text.size() + count > MaxTextSize)
            fail(QString::fromLatin1("the control text is too long"));
        else
            m_text.append(bytes, count);
    }
}

void UploadReader::finish(bool isWhole)
{
    if (!isWhole)
        fail(QString::fromLatin1("the upload broke off"));
    if (m_parts.size() < TextPart)
        fail(QString::fromLatin1("the upload has not its two parts"));
    if (m_fault.isEmpty() && !m_file.flush())
        fail(QString::fromLatin1("the file cannot be stored: %1").arg(writeFault(m_file)));
    if (m_fault.isEmpty() && !syncFile(m_file))
        fail(QString::fromLatin1("the file cannot be stored"));
    m_file.close();
}

QJsonArray UploadReader::shape() const
{
    QJsonArray parts;
    for (const Part &part : m_parts)
        parts.append(QJsonObject { { "name", part.name },
                                   { "filename", part.fileName },
                                   { "contentType", part.contentType },
                                   { "length", part.size } });
    return parts;
}

void UploadReader::fail(const QString &fault)
{
    if (m_fault.isEmpty())
        m_fault = fault;
}

} // namespace Velmar::Simulator
