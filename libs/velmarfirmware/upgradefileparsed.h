#ifndef VELMARFIRMWARE_UPGRADEFILEPARSED_H
#define VELMARFIRMWARE_UPGRADEFILEPARSED_H

#include "records/upgraderecords.h"
#include "velmarfirmware_export.h"

#include <QObject>
#include <QPair>
#include <QVector>

namespace Velmar::Firmware {

namespace Internal {
class UpgradeFileParsedPrivate;
}

/*!
    Reads an upgrade package on a thread of its own and matches it with a device.

    Which of the package's units and sections does the device take, with the cards that it has? The
    answer comes by signalParsedUpgradeFileFinished() and is fetched with upgradeFileParam().

    Keep the object until that signal has arrived and the worker has ended (startParseFile() tells
    how to wait for it): the destructor neither stops a parse nor waits for it, and leaves what the
    parse works on allocated. All parses of a process share their
    readers: one must not overlap another, nor a run of CompatibilityUpgradeDat.
*/
class VELMARFIRMWARE_EXPORT UpgradeFileParsed : public QObject
{
    Q_OBJECT

public:
    /*! Makes an idle parser with the parameters of initParam(). */
    UpgradeFileParsed(const QString &path, bool isImageFile, bool isGivenModel,
                      unsigned short modelId, unsigned char dataPathMode);

    /*!
        Replaces all parameters. Nothing is checked here, and no parse may be going on.

        \a path is the package folder or, with \a isImageFile, an image configuration file, of which
        only its validity is of interest: its parse yields no results.

        With \a isGivenModel no device is asked: the package is matched with the description of
        device model \a modelId, no sub-card matches, and the destination paths are read only if
        \a dataPathMode is 1. Otherwise the device in use decides, and the last two are of no
        meaning.
    */
    void initParam(const QString &path, bool isImageFile, bool isGivenModel, unsigned short modelId,
                   unsigned char dataPathMode);

    /*!
        Empties the results, begins a parse on the worker thread and returns at once.

        The worker is still ending when signalParsedUpgradeFileFinished() arrives, and starting a
        thread that has not ended does nothing: a parse begun then would be lost without a signal.
        Make a new parser for each package; or, to use this one again, take
        QThread::currentThread() in a slot connected to the signal by Qt::DirectConnection, and call
        QThread::wait() on it from another thread before the next initParam() or startParseFile().
    */
    void startParseFile();

    /*!
        Copies out the results of the last parse. Not to be called before its signal has arrived.

        \a upgradeCfgs are the units that fit, each with the sections that fit; a section of which
        the file goes to several places is listed once for each, the further ones at the end of its
        unit. \a dataFilePaths are the entries of the package's path file. \a sections has a model
        id and a name for each section that fits, to be offered to the user.
    */
    void upgradeFileParam(QVector<UpgradeCfg> &upgradeCfgs, QVector<DataFilePath> &dataFilePaths,
                          QVector<QPair<int, QString>> &sections);

Q_SIGNALS:
    /*!
        The parse has ended; emitted exactly once for each, from the worker thread.

        \a errMsg is for the user, translated, and empty on success. After a failure the results
        are of no use.
    */
    void signalParsedUpgradeFileFinished(bool result, const QString &errMsg);

private:
    friend class Internal::UpgradeFileParsedPrivate;

    // Outlives this object: its thread may still be ending.
    Internal::UpgradeFileParsedPrivate *const d;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADEFILEPARSED_H
