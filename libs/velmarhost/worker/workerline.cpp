#include "worker/workerline.h"

#include <QJsonDocument>

namespace Velmar::Host {

QByteArray lineOf(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

std::optional<QJsonObject> objectOf(const QByteArray &line, QString &errorText)
{
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError) {
        errorText = QStringLiteral("it is no JSON: %1").arg(error.errorString());
        return std::nullopt;
    }
    if (!document.isObject()) {
        errorText = QStringLiteral("it is no JSON object");
        return std::nullopt;
    }
    return document.object();
}

LineCutter::LineCutter(int limit)
    : m_limit(limit)
{
}

void LineCutter::add(const QByteArray &bytes)
{
    m_bytes.remove(0, m_begin);
    m_searched -= m_begin;
    m_begin = 0;
    m_bytes.append(bytes);
}

std::optional<QByteArray> LineCutter::next()
{
    const int feed = m_bytes.indexOf('\n', m_searched);
    const int end = feed < 0 ? m_bytes.size() : feed + 1;
    m_isOverLimit = m_isOverLimit || end - m_begin > m_limit;
    m_searched = end;
    if (feed < 0 || m_isOverLimit)
        return std::nullopt;
    const auto line = m_bytes.mid(m_begin, end - m_begin);
    m_begin = end;
    return line;
}

bool LineCutter::isOverLimit() const
{
    return m_isOverLimit;
}

} // namespace Velmar::Host
