#ifndef VELMARFIRMWARE_RECORDS_LOADRECORDS_H
#define VELMARFIRMWARE_RECORDS_LOADRECORDS_H

#include <QList>
#include <QObject>
#include <QString>

/*!
    The objects that a unit's description file is made of.

    A class's short name is its element in the file and its objectName, by which a load finds it
    again; a property's name is that of an attribute, and its index the place of its declaration.
    The records hold no lock: a tree belongs to one thread at a time.

    A list owns its elements and deletes them before the QObject that holds the list goes. A listed
    element may also be a QObject child: it leaves its parent as the list deletes it. Whoever fills
    the lists sees to it that nothing is listed twice and that no element has an ancestor, other
    than the list's holder, that an earlier list deletes.
*/
namespace TZ::ZLoad {

/*! One command to a device. */
class CommandConfig : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString CmdName MEMBER CmdName)
    Q_PROPERTY(QString Data MEMBER Data)
    Q_PROPERTY(bool IsCommonCmd MEMBER IsCommonCmd)
    Q_PROPERTY(int Address MEMBER Address)
    Q_PROPERTY(int WaitTime MEMBER WaitTime)
    Q_PROPERTY(int TimeOut MEMBER TimeOut)
    Q_PROPERTY(int ExecuteTimes MEMBER ExecuteTimes)
    Q_PROPERTY(int CmdFromNoneType MEMBER CmdFromNoneType)
    Q_PROPERTY(int SpecialPackID MEMBER SpecialPackID)

public:
    CommandConfig();

    /*! A new object with the same values, without a parent and without QObject children. */
    CommandConfig *clone() const;

    QString CmdName; //!< what the command does; empty, but never null, by default
    QString Data; //!< argument as text; empty, but never null, by default
    bool IsCommonCmd = false; //!< kept with the record
    int Address = 0; //!< register address; its 32 bits are taken as unsigned
    int WaitTime = 0; //!< kept with the record
    int TimeOut = 0; //!< of the write, in milliseconds; its 32 bits are taken as unsigned
    int ExecuteTimes = 0; //!< kept with the record
    int CmdFromNoneType = 0; //!< kept with the record
    int SpecialPackID = 0; //!< kept with the record
};

/*! One file of a package, with the commands that send it. */
class FileInfo : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool IsSupportBroadcast MEMBER IsSupportBroadcast)
    Q_PROPERTY(bool IsMCUFile MEMBER IsMCUFile)
    Q_PROPERTY(bool IsFileAddrNoIncrease MEMBER IsFileAddrNoIncrease)
    Q_PROPERTY(QString Version MEMBER Version)
    Q_PROPERTY(QString Remark MEMBER Remark)
    Q_PROPERTY(QString FileName MEMBER FileName)
    Q_PROPERTY(QString FileLabel MEMBER FileLabel)
    Q_PROPERTY(int Address MEMBER Address)
    Q_PROPERTY(int ExtendNum MEMBER ExtendNum)

public:
    FileInfo();
    ~FileInfo() override;

    /*! A new object with the same values and a clone of each listed command, without a parent and
        without QObject children. */
    FileInfo *clone() const;

    // The texts are empty, but never null, by default.
    bool IsSupportBroadcast = false; //!< kept with the record
    bool IsMCUFile = false; //!< kept with the record
    bool IsFileAddrNoIncrease = false; //!< kept with the record
    QString Version; //!< kept with the record
    QString Remark; //!< kept with the record
    QString FileName; //!< relative to the package's folder
    QString FileLabel; //!< name of the section that the file carries
    int Address = 0; //!< kept with the record
    int ExtendNum = 0; //!< 0: any board of the model; otherwise the one board id it is for

    QList<CommandConfig *> commandConfigs; //!< owned, in the order of sending
};

/*! The commands that come before a transfer. */
class BeforeStartCmd : public QObject
{
    Q_OBJECT

public:
    BeforeStartCmd();
    BeforeStartCmd(const BeforeStartCmd &other);
    BeforeStartCmd &operator=(const BeforeStartCmd &other);
    ~BeforeStartCmd() override;

    QList<CommandConfig *> commandConfigs; //!< owned, in the order of sending
};

/*! The commands that come after a transfer. */
class EndSendCmd : public QObject
{
    Q_OBJECT

public:
    EndSendCmd();
    EndSendCmd(const EndSendCmd &other);
    EndSendCmd &operator=(const EndSendCmd &other);
    ~EndSendCmd() override;

    QList<CommandConfig *> commandConfigs; //!< owned, in the order of sending
};

/*!
    One loadable unit: a device or a kind of card, its files and its commands.

    Copies are deep as far as the lists go and have no QObject children. Assignment drops the former
    list elements without deleting them: those that are children still go with this object, the
    others are lost, and are the price of an assignment to anything but a fresh package. Assignment
    of an object to itself changes nothing.
*/
class DataPackage : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString FilePath MEMBER FilePath)
    Q_PROPERTY(QString DeviceTypes MEMBER DeviceTypes)
    Q_PROPERTY(QString Version MEMBER Version)
    Q_PROPERTY(QString ModuleID MEMBER ModuleID)
    Q_PROPERTY(bool IsSupportFromScratch MEMBER IsSupportFromScratch)
    Q_PROPERTY(int StepType MEMBER StepType)

public:
    DataPackage();
    DataPackage(const DataPackage &other);
    DataPackage &operator=(const DataPackage &other);
    ~DataPackage() override;

    // The texts are null by default.
    QString FilePath; //!< folder of the unit
    QString DeviceTypes; //!< kind of target device
    QString Version; //!< dotted
    QString ModuleID; //!< model of the unit in hexadecimal, with or without 0x
    bool IsSupportFromScratch = false; //!< kept with the record
    int StepType = 0; //!< as UpgradeCfg::stepType

    QList<FileInfo *> fileInfos; //!< owned
    EndSendCmd *endSendCmd; //!< owned, no QObject child; null in a source is copied as nothing
    BeforeStartCmd *beforeStartCmd; //!< likewise
};

} // namespace TZ::ZLoad

#endif // VELMARFIRMWARE_RECORDS_LOADRECORDS_H
