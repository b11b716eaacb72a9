#ifndef TESTS_SUPPORT_IMAGEBUILDER_H
#define TESTS_SUPPORT_IMAGEBUILDER_H

#include <QByteArray>
#include <QPair>
#include <QVector>

/*! A combined upgrade image, byte by byte as the format's table has it. */
struct ImageBuilder {
    quint32 version = 0x01020304;
    quint16 modelId = 0x7701;
    QVector<QPair<QByteArray, QByteArray>> files; //!< destination path and contents

    QByteArray build() const;
};

#endif // TESTS_SUPPORT_IMAGEBUILDER_H
