#include "verbs.h"

#include "console.h"
#include "show/printable.h"
#include "show/runrecord.h"
#include "show/supportfile.h"

using namespace Velmar::Host;

HostExitCode reportVerb(const CommandLine &options)
{
    QString errorText;
    const auto run = findRunRecord(options.argument(), QString(), errorText);
    if (!run)
        return complain(VerdictCode::Usage, errorText);
    const auto content = supportFile(*run, errorText);
    if (content.isEmpty())
        return complain(VerdictCode::Internal, errorText);
    if (!options.isGiven("output")) {
        print(QString::fromUtf8(content));
        return HostExitCode::Ok;
    }
    const auto path = options.value("output");
    if (!writeSupportFile(path, content, errorText))
        return complain(VerdictCode::Usage, QStringLiteral("--output: ") + errorText);
    if (!options.isGiven("quiet"))
        printLine(QStringLiteral("The run %1 is in %2").arg(run->id, printable(path)));
    return HostExitCode::Ok;
}
