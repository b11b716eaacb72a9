#ifndef TESTS_SUPPORT_REGISTERLINK_H
#define TESTS_SUPPORT_REGISTERLINK_H

#include "scriptedlink.h"

#include <atomic>

/*!
    A ScriptedLink to a device that accepts every register write.

    What is done to the keep-alive is noted even when the link is closed.
*/
class RegisterLink : public ScriptedLink
{
public:
    RegisterLink();

    /*! \a answer is for the write with that number, counted from 1; those before it are accepted.
        To be called once, before the first write. */
    void answerWrite(int number, const Velmar::BizModel::LinkAnswer &answer);

    /*! The writes so far as address and payload, for instance "01000010: f2 01 02". */
    QStringList writes() const;

    QVector<QByteArray> payloads() const; //!< of the writes so far
    QVector<int> pauses() const; //!< milliseconds of each pause of the heartbeat
    int restarts() const; //!< of the heartbeat

    void pauseHeartbeat(int milliseconds) override;
    void restartHeartbeat() override;

private:
    mutable std::mutex m_mutex; // guards m_pauses
    QVector<int> m_pauses;
    std::atomic<int> m_restarts { 0 };
};

#endif // TESTS_SUPPORT_REGISTERLINK_H
