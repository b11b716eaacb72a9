#include "destinationpath.h"

#include <QCryptographicHash>
#include <QStringList>

namespace Velmar::Simulator {

namespace {

constexpr int MaxNameBytes = 255; // what Linux file systems take

/*! Length of the UTF-8 sequence at \a at, 0 if there is no valid one. */
int sequenceLength(const QByteArray &text, int at)
{
    const uchar lead = uchar(text.at(at));
    int length = 0;
    if (lead < 0x80)
        length = 1;
    else if (lead >= 0xC2 && lead < 0xE0)
        length = 2;
    else if (lead >= 0xE0 && lead < 0xF0)
        length = 3;
    else if (lead >= 0xF0 && lead < 0xF5)
        length = 4;
    if (length == 0 || at + length > text.size())
        return 0;
    for (int i = 1; i < length; ++i) {
        if ((uchar(text.at(at + i)) & 0xC0) != 0x80)
            return 0;
    }
    if (length < 3)
        return length;
    const uchar second = uchar(text.at(at + 1));
    const bool isOverlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool isSurrogate = lead == 0xED && second >= 0xA0;
    const bool isBeyondUnicode = lead == 0xF4 && second >= 0x90;
    return isOverlong || isSurrogate || isBeyondUnicode ? 0 : length;
}

void appendEscaped(QByteArray &name, char byte)
{
    name += '%';
    name += QByteArray(1, byte).toHex().toUpper();
}

QByteArray shortened(const QByteArray &name)
{
    // "%#" is no escape, so that a shortened name is nobody else's.
    const QByteArray ending =
        "%#" + QCryptographicHash::hash(name, QCryptographicHash::Sha256).toHex().left(32);
    int kept = MaxNameBytes - ending.size();
    while (kept > 0 && (uchar(name.at(kept)) & 0xC0) == 0x80)
        --kept; // not within a UTF-8 sequence
    return name.left(kept) + ending;
}

QByteArray fileName(const QByteArray &component)
{
    if (component == "..")
        return "%2E%2E";
    QByteArray name;
    for (int at = 0; at < component.size();) {
        const char byte = component.at(at);
        const int length = sequenceLength(component, at);
        if (length == 0 || byte == '%' || uchar(byte) < 0x20 || byte == 0x7F) {
            appendEscaped(name, byte);
            ++at;
        } else {
            name += component.mid(at, length);
            at += length;
        }
    }
    return name.size() > MaxNameBytes ? shortened(name) : name;
}

} // namespace

QString installedPath(const QByteArray &destination)
{
    QStringList names;
    for (const QByteArray &component : destination.split('/')) {
        if (!component.isEmpty() && component != ".")
            names.append(QString::fromUtf8(fileName(component)));
    }
    return names.join(QLatin1Char('/'));
}

} // namespace Velmar::Simulator
