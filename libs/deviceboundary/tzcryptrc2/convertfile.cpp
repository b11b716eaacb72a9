#include <tzcryptrc2/convertfile.h>

#include "conversiontarget.h"
#include "encipheredfile.h"
#include "pendingfile.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

namespace TZ {

namespace {

using namespace Internal;
using Result = ConvertOutcome::Result;

Rc2Cbc::Block randomInitialVector()
{
    Rc2Cbc::Block block;
    QRandomGenerator::system()->generate(block.begin(), block.end());
    return block;
}

Result toResult(PendingFile::Result result)
{
    switch (result) {
    case PendingFile::Result::Done:
        return Result::Done;
    case PendingFile::Result::PlaceRefused:
        return Result::TargetRefused;
    case PendingFile::Result::Failed:
        break;
    }
    return Result::Failed;
}

ConvertOutcome openSource(QFile &source)
{
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(source).isFile())
        return { Result::SourceRefused, QStringLiteral("There is no such file.") };
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return { Result::SourceRefused, source.errorString() };
    return {};
}

// work turns the open source into the open target.
ConvertOutcome
convert(const QString &source, const QString &target,
        const std::function<Result(QIODevice &source, QIODevice &target, QString &cause)> &work)
{
    const QString targetFault = conversionTargetFault(source, target);
    if (!targetFault.isEmpty())
        return { Result::TargetRefused, targetFault };
    QFile sourceFile(source);
    ConvertOutcome outcome = openSource(sourceFile);
    if (outcome.result != Result::Done)
        return outcome;
    PendingFile targetFile(target);
    outcome.result = toResult(targetFile.open(outcome.cause));
    if (outcome.result == Result::Done)
        outcome.result = work(sourceFile, targetFile.device(), outcome.cause);
    if (outcome.result == Result::Done)
        outcome.result = toResult(targetFile.commit(outcome.cause));
    return outcome;
}

} // namespace

ConvertOutcome encipherFile(const QString &source, const QString &target,
                            const std::function<bool()> &mayGoOn)
{
    return convert(source, target, [&](QIODevice &from, QIODevice &to, QString &cause) {
        return EncipheredFile::encipher(from, to, cryptKey(), randomInitialVector(), mayGoOn,
                                        cause);
    });
}

ConvertOutcome decipherFile(const QString &source, const QString &target,
                            const std::function<bool()> &mayGoOn)
{
    return convert(source, target, [&](QIODevice &from, QIODevice &to, QString &cause) {
        return EncipheredFile::decipher(from, to, cryptKey(), mayGoOn, cause);
    });
}

ConvertOutcome checkEncipheredFile(const QString &source, const std::function<bool()> &mayGoOn)
{
    QFile file(source);
    ConvertOutcome outcome = openSource(file);
    if (outcome.result == Result::Done)
        outcome.result = EncipheredFile::check(file, cryptKey(), mayGoOn, outcome.cause);
    return outcome;
}

} // namespace TZ
