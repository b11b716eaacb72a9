#ifndef VELMARUPGRADE_PACKAGEREPORT_H
#define VELMARUPGRADE_PACKAGEREPORT_H

#include "device/modelnames.h"
#include "package/offer.h"
#include "package/packagelisting.h"

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

/*! What a package holds and, if it was matched with a device or a model, what of it fits. */
class PackageReport
{
public:
    PackageReport(QString packagePath, Velmar::Host::PackageListing listing,
                  Velmar::Host::ModelNames names);

    /*! A device or a model, with which a package was matched. */
    struct Target {
        QString text;
        QJsonObject description;
        bool hasCards = false; //!< its cards are known, and were matched too
    };

    /*! Adds what fits: \a parts of \a target. */
    void setFitting(const Target &target, const std::vector<Velmar::Host::PartOffer> &parts);

    QString text() const; //!< several lines, printable
    QJsonObject json() const; //!< strings as they are

private:
    struct Takers {
        QStringList parts; //!< names of the parts that take a file
        QStringList targetPaths; //!< on the device
    };

    bool isMatched(const Velmar::Host::ListedUnit &unit) const;
    Takers takers(const Velmar::Host::ListedFile &file) const;
    QString fileLine(const Velmar::Host::ListedUnit &unit,
                     const Velmar::Host::ListedFile &file) const;
    QJsonObject unitObject(const Velmar::Host::ListedUnit &unit) const;

    const QString m_packagePath;
    const Velmar::Host::PackageListing m_listing;
    const Velmar::Host::ModelNames m_names;
    std::optional<Target> m_target;
    std::vector<Velmar::Host::PartOffer> m_parts;
    QHash<QString, Takers> m_takers; // by fileKey()
};

#endif // VELMARUPGRADE_PACKAGEREPORT_H
