#ifndef TESTS_SUPPORT_WALLGREETING_H
#define TESTS_SUPPORT_WALLGREETING_H

#include <QCborArray>
#include <QCborMap>
#include <QString>

/*! What a Strata S8 called "left wall" answers to "hello". */
inline QCborMap wallGreeting(const QString &serial = QStringLiteral("S8-0001"),
                             const QCborArray &cards = {})
{
    return { { QStringLiteral("protocol"), 1 },
             { QStringLiteral("modelId"), 0x7701 },
             { QStringLiteral("serial"), serial },
             { QStringLiteral("name"), QStringLiteral("left wall") },
             { QStringLiteral("cards"), cards } };
}

#endif // TESTS_SUPPORT_WALLGREETING_H
