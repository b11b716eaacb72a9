#ifndef TESTS_SUPPORT_STATUSBARRECORDER_H
#define TESTS_SUPPORT_STATUSBARRECORDER_H

#include <velmarbizmodel/devicelist.h>

#include <QObject>
#include <QStringList>

#include <mutex>

/*! Records what is shown in the host's status bar, by any thread, as long as the object is there.
 */
class StatusBarRecorder : public QObject
{
public:
    StatusBarRecorder()
    {
        using Velmar::BizModel::DeviceList;
        using Velmar::BizModel::Enum::StatusBarMsgType;
        connect(
            DeviceList::instance(), &DeviceList::signalShowStatusBarMsg, this,
            [this](StatusBarMsgType type, const QString &text, int milliseconds) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_shown.append(
                    QStringLiteral("%1 \"%2\" %3 ms")
                        .arg(QString::number(int(type)), text, QString::number(milliseconds)));
            },
            Qt::DirectConnection);
    }

    /*! Type, text and time of each, as in '0 "Sending" 5000 ms'. */
    QStringList shown() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_shown;
    }

private:
    mutable std::mutex m_mutex; // guards m_shown
    QStringList m_shown;
};

#endif // TESTS_SUPPORT_STATUSBARRECORDER_H
