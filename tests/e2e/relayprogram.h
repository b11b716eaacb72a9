#ifndef TESTS_E2E_RELAYPROGRAM_H
#define TESTS_E2E_RELAYPROGRAM_H

#include <QProcess>
#include <QString>
#include <QStringList>

/*! velmar-relay as a process, killed with the object. */
class RelayProgram
{
public:
    /*! Starts it at \a listen, ADDR[:PORT], in front of \a device, ADDR:PORT, with \a arguments for
        its fault, and waits until hosts can connect. */
    RelayProgram(const QString &listen, const QString &device, const QStringList &arguments);
    ~RelayProgram();

    /*! ADDR:PORT for hosts; empty if it did not get ready. */
    QString address() const { return m_address; }

private:
    Q_DISABLE_COPY_MOVE(RelayProgram)

    QProcess m_process;
    QString m_address;
};

#endif // TESTS_E2E_RELAYPROGRAM_H
