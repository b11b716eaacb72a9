#ifndef TESTS_E2E_PROOF_H
#define TESTS_E2E_PROOF_H

#include "trial.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

/*! What happens to a host or its surroundings, beside the faults of device and network. */
enum class Blow {
    None,
    HostKilled, //!< by SIGKILL
    WorkerKilled, //!< by SIGKILL
    SecondHost, //!< another one is started for the same device
    DiskTooSmall, //!< for private copies, from the start
    DiskFilled, //!< that of the private copies
    FileSizeLimited, //!< by the system: an image is too large, the package's files are not
    PackageReadOnly, //!< also for root, where the test may make it so
};

/*! Which firmware a device has. */
enum class Firmware { Old, New };

/*! A point of an upgrade. */
struct Moment {
    const char *phase = ""; //!< its word; empty: before the start
    int percent = 1; //!< that the phase has told; 0: as soon as it has begun
};

/*! One trial of a host, and how it has to end. */
struct ProofRow {
    const char *name;
    Adversity adversity;
    Blow blow;
    Moment moment; //!< of the blow
    const char *code; //!< word of the verdict; empty: a killed host tells none
    int exitCode; //!< -1: killed
    Firmware firmware; //!< behind it all
    int restarts; //!< of the device
    qint64 kernelSize =
        0; //!< bytes of a file of the package, if it is to be larger than usual: the
    //!< system takes several MiB from a host at once, whatever becomes of them
};

/*! How a trial has ended. */
struct ProofOutcome {
    QString trouble; //!< of the test itself: nothing else counts then
    bool isSkipped = false; //!< the system does not let the blow be dealt; \c trouble says why
    QString code;
    int exitCode = -1;
    QString output; //!< of the host, for people
    DeviceAftermath device;
    QStringList left; //!< private copies and temporary files
    bool isPackageUntouched = false;

    QString secondCode; //!< of the second host
    int secondExitCode = -1;

    bool isRecovered = false; //!< the device has come back without its faults
    QString cleanCode; //!< of a run then
    int cleanExitCode = -1;
    QString cleanOutput;
    DeviceAftermath cleanDevice;
    QStringList cleanLeft;
    bool isPackageStillUntouched = false;
};

/*!
    Runs a table of trials on one road, several at a time, and compares them with the table.

    Each trial has a device, a package and folders of its own, and hosts with short limits:
    silence 4 s, return 4 s (behind that, the host looks at versions for some time more).
*/
class Proof
{
public:
    /*! \a network is as for Trial. */
    Proof(Trial::Road road, std::vector<ProofRow> rows, int network);

    /*! Runs all rows; returns when they have ended. */
    void run();

    const std::vector<ProofRow> &rows() const { return m_rows; }

    /*! Compares the outcome of the row \a index with the row, as a test function. */
    void check(std::size_t index) const;

private:
    const Trial::Road m_road;
    const std::vector<ProofRow> m_rows;
    const int m_network;
    std::vector<ProofOutcome> m_outcomes; // of the rows
};

#endif // TESTS_E2E_PROOF_H
