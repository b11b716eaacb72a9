#ifndef VELMARUPGRADE_LOGFILE_H
#define VELMARUPGRADE_LOGFILE_H

#include "show/runevent.h"

#include <QFile>
#include <QString>

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

#endif // VELMARUPGRADE_LOGFILE_H
