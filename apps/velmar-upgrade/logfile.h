#ifndef VELMARUPGRADE_LOGFILE_H
#define VELMARUPGRADE_LOGFILE_H

#include "commandline.h"
#include "show/runevent.h"

#include <QFile>
#include <QObject>
#include <QString>

#include <functional>

/*! Appends the log of a run, and its phases and verdict, to a file that the user named. */
class LogFile final : public Velmar::Host::RunEventSink
{
public:
    /*! False, with \a errorText set, if \a path cannot be opened. */
    bool open(const QString &path, QString &errorText);

    void take(const Velmar::Host::RunEvent &event) override;

private:
    QFile m_file;
};

/*! Opens the file of --log-file, if it is set, and adds it to \a events; false with the error told. */
bool openLogFile(const CommandLine &options, LogFile &file, Velmar::Host::RunEventFan &events);

/*! Passes lines of the log, which come from any thread, on to \a events as such, in the thread of
    \a context and as long as that lives. */
std::function<void(const QString &line)> logTeller(QObject *context,
                                                   Velmar::Host::RunEventSink &events);

#endif // VELMARUPGRADE_LOGFILE_H
