#ifndef VELMARBIZMODEL_ENUMS_H
#define VELMARBIZMODEL_ENUMS_H

#include <QMetaType>

/*! Numbers that hosts, device libraries and the upgrade library exchange. */
namespace Velmar::BizModel::Enum {

/*! How a host shows a text of its status bar. */
enum class StatusBarMsgType {
    Information = 0, //!< progress and success
    Warning = 1,
    Failure = 2,
};

/*! How a host shows a message box. */
enum class FramelessMessageBoxMsgType {
    Question = 0,
    Warning = 1,
    Error = 2,
};

namespace File {

/*! Kind of a file that goes to a device. */
enum class FileType {
    Unknown = 0,
    Upgrade = 13, //!< a combined upgrade image
};

} // namespace File

} // namespace Velmar::BizModel::Enum

Q_DECLARE_METATYPE(Velmar::BizModel::Enum::StatusBarMsgType)
Q_DECLARE_METATYPE(Velmar::BizModel::Enum::FramelessMessageBoxMsgType)

#endif // VELMARBIZMODEL_ENUMS_H
