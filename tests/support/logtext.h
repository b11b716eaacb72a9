#ifndef TESTS_SUPPORT_LOGTEXT_H
#define TESTS_SUPPORT_LOGTEXT_H

#include "logrecorder.h"

#include <QByteArray>

/*! All that \a log recorded, a line each, as in "warning: Device is nullptr\n". */
inline QByteArray logText(const LogRecorder &log)
{
    QByteArray text;
    const auto lines = log.lines();
    for (const LogRecorder::Line &line : lines) {
        switch (line.first) {
        case QtDebugMsg:
            text += "debug: ";
            break;
        case QtWarningMsg:
            text += "warning: ";
            break;
        default:
            text += "other: ";
            break;
        }
        text += line.second.toUtf8() + '\n';
    }
    return text;
}

#endif // TESTS_SUPPORT_LOGTEXT_H
