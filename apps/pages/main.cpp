// Writes the manual pages and the completions of the programs, as they are installed below share/.

#include "velmar-device/programtable.h"
#include "velmar-package/programtable.h"
#include "velmar-relay/programtable.h"
#include "velmar-upgrade/options.h"

#include <velmarcommandline/completions.h>
#include <velmarcommandline/manpage.h>

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>
#include <cstdlib>

using namespace Velmar;

namespace {

void write(const QString &path, const QByteArray &text)
{
    QSaveFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly)
        || file.write(text) != text.size() || !file.commit()) {
        std::fprintf(stderr, "%s: %s\n", qUtf8Printable(path), qUtf8Printable(file.errorString()));
        std::exit(EXIT_FAILURE);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fputs("Usage: velmar-pages FOLDER VERSION DATE\n", stderr);
        return EXIT_FAILURE;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    for (const Cli::Program *program : { &UpgradeProgram, &Simulator::DeviceProgram,
                                         &Package::PackageProgram, &Relay::RelayProgram }) {
        const QString name = QLatin1String(program->name);
        write(folder + QStringLiteral("/man/man1/%1.1").arg(name),
              Cli::manPage(*program, QString::fromLatin1(argv[2]), QString::fromLatin1(argv[3])));
        write(folder + QStringLiteral("/bash-completion/completions/%1").arg(name),
              Cli::bashCompletion(*program));
        write(folder + QStringLiteral("/zsh/site-functions/_%1").arg(name),
              Cli::zshCompletion(*program));
        write(folder + QStringLiteral("/fish/vendor_completions.d/%1.fish").arg(name),
              Cli::fishCompletion(*program));
    }
    return EXIT_SUCCESS;
}
