#include "package/packagecheck.h"

#include "package/packagelisting.h"
#include "package/packagename.h"
#include "package/packagerules.h"

#include <tzcryptrc2/convertfile.h>

#include <QHash>
#include <QSet>

#include <algorithm>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

namespace Velmar::Host {

namespace {

// A package of nothing but faults must not fill the memory; nobody reads more of them.
constexpr int MostRefusals = 200;
constexpr int MostNotes = 200;

/*! Looks through one package. */
class Checker
{
public:
    Checker(const QString &path, const PackageManifest &manifest,
            const PackageCheckOptions &options)
        : m_path(path)
        , m_manifest(manifest)
        , m_options(options)
    {
    }

    std::vector<PackageFinding> run()
    {
        checkNames();
        PackageListing listing;
        QString errorText; // the faults say the same by place
        listing.read(m_path, errorText);
        for (const auto &unit : listing.units()) {
            if (isCancelled())
                return std::move(m_findings);
            checkUnit(unit);
        }
        for (const auto &fault : listing.faults())
            addFault(fault);
        for (const auto &entry : listing.paths())
            checkEntry(entry);
        checkPlaces();
        if (m_options.triesDeciphering)
            tryDeciphering();
        return std::move(m_findings);
    }

private:
    // Folders as well: one could lie where the upgrade library wants to write a file.
    void checkNames()
    {
        for (const auto &folder : m_manifest.folders())
            checkName(folder);
        for (const auto &file : m_manifest.files())
            checkName(file.path);
    }

    void checkName(const QString &path)
    {
        const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
        const QString fault = packageNameFault(name);
        if (!fault.isEmpty())
            refuse("name", path, QStringLiteral("The name %1.").arg(fault));
        if (path == QLatin1String("upgrade"))
            refuse("reserved-name", path,
                   QStringLiteral("The upgrade writes its image under this name."));
        if (name.endsWith(QLatin1String("_dn")))
            refuse("reserved-name", path,
                   QStringLiteral("The upgrade writes deciphered files under names that end in "
                                  "\"_dn\"."));
    }

    void checkUnit(const ListedUnit &unit)
    {
        const QString index = QStringLiteral("PackageCfg.xml");
        const QString nameFault = packageNameFault(unit.folder);
        if (!nameFault.isEmpty()) {
            refuse("unit-name", index,
                   QStringLiteral("The name of the unit's folder, \"%1\", %2.")
                       .arg(unit.folder, nameFault));
            return;
        }
        if (m_units.contains(unit.folder)) {
            refuse(
                "doubled-unit", index,
                QStringLiteral("The index names the folder %1 more than once.").arg(unit.folder));
            return;
        }
        m_units.insert(unit.folder);
        if (unit.descriptionCount == 0)
            refuse("no-description", unit.folder,
                   QStringLiteral("The unit has no description, a file that ends in \".xml\"."));
        if (unit.descriptionCount > 1)
            refuse("several-descriptions", unit.folder,
                   QStringLiteral("The unit has %1 files that end in \".xml\"; only one can be its "
                                  "description.")
                       .arg(unit.descriptionCount));
        for (const auto &fault : unit.faults)
            addFault(fault);
        for (const auto &command : unit.commands)
            checkCommand(unit, command);
        for (const auto &file : unit.files)
            checkFile(unit, file);
    }

    void checkCommand(const ListedUnit &unit, const ListedCommand &command)
    {
        if (!commandNames().contains(command.name))
            refuse("unknown-command", placeOf(unit.description, command.line),
                   QStringLiteral("There is no command \"%1\".").arg(command.name));
    }

    void checkFile(const ListedUnit &unit, const ListedFile &file)
    {
        const QString place = placeOf(unit.description, file.line);
        const QString nameFault = packageNameFault(file.fileName);
        if (!nameFault.isEmpty()) {
            refuse(
                "file-name", place,
                QStringLiteral("The name of the file, \"%1\", %2.").arg(file.fileName, nameFault));
            return;
        }
        const QString path = unit.folder + QLatin1Char('/') + file.fileName;
        const auto *found = m_manifest.find(path);
        if (!found) {
            note("missing-file", place, QStringLiteral("There is no file %1.").arg(path));
            return;
        }
        if (isGoldenFile(file.fileName) || m_named[path]++ > 0)
            return;
        checkSize(*found);
        if (isEncipheredFile(path))
            m_enciphered.push_back(found);
    }

    // The image takes lengths as signed numbers of 32 bits, and longer files as something shorter.
    void checkSize(const PackageFile &file)
    {
        if (file.size > std::numeric_limits<qint32>::max())
            refuse("file-size", file.path,
                   QStringLiteral("The file has 2 GiB or more, which no upgrade can send."));
        else if (file.size == 0)
            note("empty-file", file.path, QStringLiteral("The file is empty."));
    }

    void checkEntry(const ListedPath &entry)
    {
        const QString place = placeOf(QStringLiteral("DataFilPathCfg.xml"), entry.line);
        const QString nameFault = packageNameFault(entry.source);
        if (!nameFault.isEmpty())
            refuse(
                "source-name", place,
                QStringLiteral("The name of the file, \"%1\", %2.").arg(entry.source, nameFault));
        else if (!m_manifest.find(entry.source))
            note("missing-file", place, QStringLiteral("There is no file %1.").arg(entry.source));
        m_places += m_named.value(entry.source);
        if (!isTarget(entry.target))
            refuse("target", place,
                   QStringLiteral("The destination \"%1\" has not 1 to %2 printable ASCII "
                                  "characters.")
                       .arg(entry.target, QString::number(LongestTarget)));
    }

    // A few names and a few places more become any number of both together.
    void checkPlaces()
    {
        constexpr qint64 Most = std::numeric_limits<quint16>::max();
        if (m_places > Most)
            refuse(
                "too-many-places", QStringLiteral("DataFilPathCfg.xml"),
                QStringLiteral("The files of all units have %1 places together, and an image has "
                               "room for %2.")
                    .arg(m_places)
                    .arg(Most));
    }

    void tryDeciphering()
    {
        // The largest first, so that no thread is left alone with it at the end.
        std::vector<std::size_t> order(m_enciphered.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
            return m_enciphered[a]->size > m_enciphered[b]->size;
        });
        std::vector<QString> causes(m_enciphered.size());
        std::atomic<std::size_t> next { 0 };
        const auto work = [&] {
            for (std::size_t i = next++; i < order.size() && !isCancelled(); i = next++)
                causes[order[i]] = causeAgainst(m_enciphered[order[i]]->path);
        };
        std::vector<std::thread> helpers;
        try {
            const std::size_t threads =
                std::min<std::size_t>(order.size(), std::thread::hardware_concurrency());
            while (helpers.size() + 1 < threads)
                helpers.emplace_back(work);
        } catch (const std::system_error &) {
            // This thread does the work of those that the system has not given.
        }
        work();
        for (auto &helper : helpers)
            helper.join();
        for (std::size_t i = 0; i < causes.size(); ++i) {
            if (!causes[i].isEmpty())
                refuse("undecipherable", m_enciphered[i]->path,
                       QStringLiteral("The file cannot be deciphered: %1").arg(causes[i]));
        }
    }

    // Why the file cannot be deciphered; empty if it can, or if the check was cancelled.
    QString causeAgainst(const QString &path) const
    {
        const auto outcome = TZ::checkEncipheredFile(m_path + QLatin1Char('/') + path,
                                                     [this] { return !isCancelled(); });
        return outcome.result == TZ::ConvertOutcome::Result::Interrupted ? QString()
                                                                         : outcome.cause;
    }

    bool isCancelled() const { return m_options.isCancelled && *m_options.isCancelled; }

    static QString placeOf(const QString &file, int line)
    {
        return line == 0 ? file : QStringLiteral("%1:%2").arg(file, QString::number(line));
    }

    void addFault(const ListedFault &fault)
    {
        // Without destinations, files are left out for which the plan gives the reason.
        const bool isPathFileMissing = fault.code == QLatin1String("no-file")
            && fault.file == QLatin1String("DataFilPathCfg.xml");
        const QByteArray code = fault.code.toLatin1();
        const QString place = placeOf(fault.file, fault.line);
        if (isPathFileMissing)
            note(code.constData(), place, fault.text);
        else
            refuse(code.constData(), place, fault.text);
    }

    void refuse(const char *code, const QString &place, const QString &text)
    {
        if (m_refusals++ < MostRefusals)
            m_findings.push_back({ QLatin1String(code), place, text, true });
    }

    void note(const char *code, const QString &place, const QString &text)
    {
        if (m_notes++ < MostNotes)
            m_findings.push_back({ QLatin1String(code), place, text, false });
    }

    const QString &m_path;
    const PackageManifest &m_manifest;
    const PackageCheckOptions &m_options;
    std::vector<PackageFinding> m_findings;
    int m_refusals = 0;
    int m_notes = 0;
    QSet<QString> m_units; // folders of those that have been looked at
    QHash<QString, qint64> m_named; // how often units name a file
    qint64 m_places = 0; // of all these files, for each of these times
    std::vector<const PackageFile *> m_enciphered; // those of them that are to be deciphered
};

} // namespace

std::vector<PackageFinding> checkPackage(const QString &path, const PackageManifest &manifest,
                                         const PackageCheckOptions &options)
{
    return Checker(path, manifest, options).run();
}

const PackageFinding *firstRefusal(const std::vector<PackageFinding> &findings)
{
    const auto refusal =
        std::find_if(findings.begin(), findings.end(),
                     [](const PackageFinding &finding) { return finding.isRefusal; });
    return refusal == findings.end() ? nullptr : &*refusal;
}

} // namespace Velmar::Host
