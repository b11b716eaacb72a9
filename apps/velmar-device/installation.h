#ifndef VELMARDEVICE_INSTALLATION_H
#define VELMARDEVICE_INSTALLATION_H

#include "deviceimage.h"
#include "devicerecord.h"
#include "outcome.h"

#include <QFile>
#include <QSet>

#include <functional>

namespace Velmar::Simulator {

class DeviceState;
class StateFolder;

/*! What a host orders to install, with the sections found on this device. */
struct InstallationOrder {
    bool deletesImage = false;
    bool bricksIfCut = false;
    std::vector<PartOrder> parts;
    std::vector<SectionKey> sections; //!< those that get the image's version
};

/*!
    One installation of the waiting image, step by step; each step counts once it is recorded.

    The files are first written beside the installed ones (staged). A device that stops until then
    has installed nothing: recover() takes everything back. From the moment that the record binds
    the device to complete, recover() moves the rest of the files into their places. So the
    installed files are all old or all new, whenever the device stops.
*/
class Installation
{
public:
    /*! What has just been done. A device can be stopped at each. */
    enum class Step {
        Ordered = 1,
        HalfStaged,
        Staged,
        Bound,
        HalfPlaced,
        Placed,
        Completed,
        TidiedUp,
    };
    using StepObserver = std::function<void(Step)>;

    /*! \a folder and \a state have to outlive this object; \a observer is told of each step. */
    Installation(const StateFolder &folder, DeviceState &state, StepObserver observer);

    /*! Takes the order and gives it the next number. */
    Outcome begin(const InstallationOrder &order);

    /*! Writes up to \a maxBytes more of the next file, at least 1. False, with \a errorText set, if
        the disk does not take them or the image cannot be read. */
    bool stageNext(qint64 maxBytes, QString &errorText);
    bool isStaged() const { return m_next == m_image.files.size(); }
    qint64 stagedBytes() const { return m_stagedBytes; }
    qint64 totalBytes() const { return m_totalBytes; }

    /*! Binds the device to complete, once all is staged. False, with \a errorText set and nothing
        bound, if the record cannot be written. */
    bool bind(QString &errorText);

    /*! Moves the next file into its place. False, with \a errorText set, if it cannot be moved;
        recover() tries again. */
    bool placeNext(QString &errorText);
    bool isPlaced() const { return m_placed == m_image.files.size(); }

    /*! Ends with result 2, once all is placed: the ordered sections get the image's version. False,
        with \a errorText set, if the record cannot be written. */
    bool complete(QString &errorText);

    /*! Ends with result 2 and nothing installed, once all is staged. False, with \a errorText set, if
        the record cannot be written. */
    bool pretend(QString &errorText);

    /*! Ends with result 3 and nothing installed, unless the device is bound to complete. False,
        with \a errorText set, if the record cannot be written. */
    bool takeBack(QString &errorText);

    /*!
        Brings the folder in order after a stop: completes or takes back what was interrupted, and
        removes what nothing refers to.

        False, with \a errorText set, if a bound installation cannot be completed. It then has
        result 3, and stays to be completed by the next call.
    */
    static bool recover(const StateFolder &folder, DeviceState &state, QString &errorText);

private:
    QString imagePath() const;
    QString stagedPath(std::size_t index) const;
    QString fault(const QString &what, const QFile &file) const;
    QString targetFault() const;
    bool loadImage(QString &errorText);
    Outcome checkPlaces() const;
    bool conclude(const std::function<void(DeviceRecord &)> &change, QString &errorText);
    bool openNext(QString &errorText);
    bool finishStagedFile(QString &errorText);
    void report(Step step);

    const StateFolder &m_folder;
    DeviceState &m_state;
    const StepObserver m_observer;
    DeviceImage m_image;
    qint64 m_totalBytes = 0;
    qint64 m_stagedBytes = 0;
    std::size_t m_next = 0; // file that is being staged
    std::size_t m_placed = 0; // files in their places
    int m_reported = 0; // the Step told last
    QFile m_source;
    QFile m_target;
    QSet<QString> m_knownFolders; // that files were placed in
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_INSTALLATION_H
