#include "package/plan.h"

#include <jsontext/jsontext.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

#include <algorithm>

// Plan::save() and Plan::load(): plans as files.

namespace Velmar::Host {

namespace {

constexpr qint64 LargestFile = qint64(64) * 1024 * 1024;

std::optional<QByteArray> readWhole(const QString &path, QString &errorText)
{
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(path).isFile()) {
        errorText = QStringLiteral("%1 is no file").arg(path);
        return std::nullopt;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    const QByteArray text = file.read(LargestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    if (text.size() > LargestFile) {
        errorText = QStringLiteral("%1 is larger than 64 MiB").arg(path);
        return std::nullopt;
    }
    return text;
}

bool hasAllHashes(const Plan &plan)
{
    return !plan.packageDigest.isEmpty()
        && std::none_of(plan.files.cbegin(), plan.files.cend(),
                        [](const PlannedFile &file) { return file.sha256.isEmpty(); });
}

} // namespace

bool Plan::save(const QString &path, QString &errorText) const
{
    QSaveFile file(path);
    const QByteArray text = QJsonDocument(toJson()).toJson();
    const bool isSaved = file.open(QIODevice::WriteOnly) && file.write(text) == text.size()
        && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner
                               | QFileDevice::ReadGroup | QFileDevice::ReadOther)
        && file.commit();
    if (!isSaved)
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
    return isSaved;
}

std::optional<Plan> Plan::load(const QString &path, QString &errorText)
{
    const auto text = readWhole(path, errorText);
    if (!text)
        return std::nullopt;
    const auto refuse = [&](int line, const QString &fault) {
        errorText = QStringLiteral("%1:%2: %3").arg(path, QString::number(line), fault);
        return std::nullopt;
    };

    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(*text, &error);
    const JsonText lines(*text);
    if (error.error != QJsonParseError::NoError)
        return refuse(lines.lineAt(error.offset), error.errorString());
    // The tree would keep the last one and drop the others without a word.
    int line = 0;
    const JsonPath repeated = lines.repeatedKey(line);
    if (!repeated.isEmpty())
        return refuse(line, QStringLiteral("key \"%1\" is used twice").arg(repeated.last()));
    if (!document.isObject())
        return refuse(1, QStringLiteral("a plan is a JSON object"));

    QString fault;
    const auto plan = fromJson(document.object(), fault);
    if (!plan) {
        errorText = QStringLiteral("%1: %2").arg(path, fault);
        return std::nullopt;
    }
    if (!hasAllHashes(*plan)) {
        errorText = QStringLiteral("%1: the plan lacks hashes, so that nothing could be compared "
                                   "with it")
                        .arg(path);
        return std::nullopt;
    }
    return plan;
}

} // namespace Velmar::Host
