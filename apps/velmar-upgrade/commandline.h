#ifndef VELMARUPGRADE_COMMANDLINE_H
#define VELMARUPGRADE_COMMANDLINE_H

#include "device/deviceaddress.h"
#include "process/hostexitcode.h"

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/*!
    The options of one verb.

    Made with what the verb takes; then parse(), then the accessors. An accessor for an option that
    the verb does not take is an error in the program.
*/
class CommandLine
{
public:
    /*! \a usage is what stands behind the program's name, as in "inspect PACKAGE [options]". */
    CommandLine(const QString &usage, const QString &description);

    void addArgument(const QString &name, const QString &description);
    void addOption(const QString &name, const QString &description,
                   const QString &valueName = QString(), const QString &defaultValue = QString());

    // Options that several verbs have.
    void addDevice();
    void addCatalogue();
    void addTimeout();
    void addVerbose();

    /*! Reads \a arguments, the words behind the verb. A value if the program is to end with it:
        help was asked for and printed, or there is an error, which was told. */
    std::optional<Velmar::Host::HostExitCode> parse(const QStringList &arguments);

    bool isSet(const QString &option) const;
    QString value(const QString &option) const;
    QStringList values(const QString &option) const;
    QString argument() const; //!< the one positional argument

    /*! The value of --device, or nothing with the error told. */
    std::optional<Velmar::Host::DeviceAddress> deviceAddress() const;

    /*! The value of \a option as a number from \a least to \a greatest, or nothing with the error
        told. */
    std::optional<int> number(const QString &option, int least, int greatest) const;

    /*! The value of --timeout, or nothing with the error told. */
    std::optional<std::chrono::milliseconds> timeLimit() const;

private:
    const QString m_usage;
    QCommandLineParser m_parser;
    int m_argumentCount = 0;
};

#endif // VELMARUPGRADE_COMMANDLINE_H
