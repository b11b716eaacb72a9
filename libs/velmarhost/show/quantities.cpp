#include "show/quantities.h"

namespace Velmar::Host {

namespace {

struct Unit {
    qint64 bytes;
    const char *name;
};

Unit unitOf(qint64 bytes)
{
    constexpr qint64 KiB = 1024;
    constexpr qint64 MiB = KiB * 1024;
    if (bytes >= 10 * MiB)
        return { MiB, "MiB" };
    if (bytes >= 10 * KiB)
        return { KiB, "KiB" };
    return { 1, "B" };
}

} // namespace

QString clockText(std::chrono::milliseconds duration)
{
    const qint64 seconds = duration.count() / 1000;
    const QChar zero = QLatin1Char('0');
    if (seconds < 3600)
        return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, zero);
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, zero)
        .arg(seconds % 60, 2, 10, zero);
}

QString limitText(std::chrono::seconds duration)
{
    const qint64 seconds = duration.count();
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(seconds);
    return QStringLiteral("%1 min").arg((seconds + 59) / 60);
}

QString amountText(qint64 bytes)
{
    const auto unit = unitOf(bytes);
    return QStringLiteral("%1 %2").arg(bytes / unit.bytes).arg(QLatin1String(unit.name));
}

QString amountText(qint64 bytes, qint64 total)
{
    const auto unit = unitOf(total);
    return QStringLiteral("%1 of %2 %3")
        .arg(bytes / unit.bytes)
        .arg(total / unit.bytes)
        .arg(QLatin1String(unit.name));
}

} // namespace Velmar::Host
