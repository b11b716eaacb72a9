#ifndef VELMARDEVICE_TOLDPROGRESS_H
#define VELMARDEVICE_TOLDPROGRESS_H

#include <records/devicerecords.h>

#include <QtGlobal>

namespace Velmar::Simulator {

class Faults;
class Installer;

/*! What the polls of one road are told of the last installation: how far it is or, under a fault,
    the end of an older one. */
class ToldProgress
{
public:
    /*! Both arguments have to outlive this object. */
    ToldProgress(const Installer &installer, const Faults &faults);

    /*! For the next poll. */
    ProtoModel::Auxiliary::s_UpgradePercent next();

    /*! Whether hosts are told the number of the installation. */
    bool hasRun() const;

private:
    bool isOldOneTold();

    const Installer &m_installer;
    const Faults &m_faults;
    quint32 m_run = 0; // that was told last
    qint64 m_polls = 0; // of that
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_TOLDPROGRESS_H
