#ifndef TINY_VELMARBIZMODEL_ENUMS_H
#define TINY_VELMARBIZMODEL_ENUMS_H

#include <QMetaType>

// Only the numbers are known to the upgrade library; the names are each maker's own.
namespace Velmar::BizModel::Enum {

enum StatusBarMsgType { Bar0, Bar1, Bar2 };
enum FramelessMessageBoxMsgType { Box0, Box1, Box2 };

namespace File {

enum FileType { Type0, Type13 = 13 };

} // namespace File

} // namespace Velmar::BizModel::Enum

Q_DECLARE_METATYPE(Velmar::BizModel::Enum::StatusBarMsgType)
Q_DECLARE_METATYPE(Velmar::BizModel::Enum::FramelessMessageBoxMsgType)

#endif // TINY_VELMARBIZMODEL_ENUMS_H
