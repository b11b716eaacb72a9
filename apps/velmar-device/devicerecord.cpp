#include "devicerecord.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace Velmar::Simulator {

namespace {

constexpr int Format = 1;

constexpr struct {
    InstallationRecord::Phase phase;
    const char *name;
} PhaseNames[] = {
    { InstallationRecord::Phase::Staging, "staging" },
    { InstallationRecord::Phase::Committing, "committing" },
    { InstallationRecord::Phase::Over, "over" },
};

QLatin1String phaseName(InstallationRecord::Phase phase)
{
    for (const auto &entry : PhaseNames) {
        if (entry.phase == phase)
            return QLatin1String(entry.name);
    }
    return {};
}

QJsonObject toObject(const ReceivedImage &image)
{
    return { { "fileName", image.fileName }, { "version", image.version } };
}

QJsonObject toObject(const SectionKey &key)
{
    return {
        { "type", key.type },
        { "slotId", key.slotId },
        { "modelId", qint64(key.modelId) },
        { "code", key.code },
    };
}

QJsonObject toObject(const InstallationRecord &installation)
{
    QJsonArray sections;
    for (const SectionKey &key : installation.sections)
        sections.append(toObject(key));
    QJsonArray parts;
    for (const PartOrder &part : installation.parts) {
        QJsonArray codes;
        for (const quint16 code : part.codes)
            codes.append(code);
        parts.append(
            QJsonObject { { "type", part.type }, { "slotId", part.slotId }, { "codes", codes } });
    }
    QJsonObject object {
        { "run", qint64(installation.run) },
        { "phase", phaseName(installation.phase) },
        { "result", installation.result },
        { "image", toObject(installation.image) },
        { "deletesImage", installation.deletesImage },
        { "parts", parts },
        { "sections", sections },
    };
    if (installation.bricksIfCut)
        object.insert(QLatin1String("bricksIfCut"), true);
    return object;
}

/*! Reads the members of an object, each of which has to be there; remembers the first fault. */
class MemberReader
{
public:
    MemberReader(const QJsonObject &object, QString &errorText)
        : m_object(object)
        , m_errorText(errorText)
    {
    }

    qint64 number(const char *key, qint64 minimum, qint64 maximum)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        const double number = value.toDouble();
        if (!value.isDouble() || std::floor(number) != number || number < double(minimum)
            || number > double(maximum)) {
            fail(key, "a number in its range");
            return minimum;
        }
        return qint64(number);
    }

    QString text(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isString())
            fail(key, "a text");
        return value.toString();
    }

    /*! False if it is not there. */
    bool flag(const char *key) { return m_object.contains(QLatin1String(key)) && boolean(key); }

    bool boolean(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isBool())
            fail(key, "true or false");
        return value.toBool();
    }

    QJsonArray array(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isArray())
            fail(key, "a list");
        return value.toArray();
    }

    QJsonObject object(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isObject())
            fail(key, "an object");
        return value.toObject();
    }

    void fail(const char *key, const char *expectation)
    {
        if (m_errorText.isEmpty())
            m_errorText = QString::fromLatin1("\"%1\" is not %2")
                              .arg(QLatin1String(key), QLatin1String(expectation));
    }

private:
    const QJsonObject m_object;
    QString &m_errorText;
};

template<typename Number> Number whole(MemberReader &reader, const char *key)
{
    return Number(
        reader.number(key, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
}

/*! The name of a file is appended to a folder and removed from it. */
QString readFileName(MemberReader &reader, const char *key)
{
    const QString name = reader.text(key);
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.startsWith(QLatin1Char('.')))
        reader.fail(key, "the name of a file");
    return name;
}

ReceivedImage readImage(const QJsonObject &object, QString &errorText)
{
    MemberReader reader(object, errorText);
    return { readFileName(reader, "fileName"), reader.text("version") };
}

SectionKey readKey(MemberReader &reader)
{
    SectionKey key;
    key.type = whole<quint8>(reader, "type");
    key.slotId = whole<quint8>(reader, "slotId");
    key.modelId = whole<quint32>(reader, "modelId");
    key.code = whole<quint16>(reader, "code");
    return key;
}

PartOrder readPart(const QJsonObject &object, QString &errorText)
{
    MemberReader reader(object, errorText);
    PartOrder part;
    part.type = whole<int>(reader, "type");
    part.slotId = whole<quint8>(reader, "slotId");
    for (const QJsonValue code : reader.array("codes")) {
        if (code.toInt(-1) < 0 || code.toInt() > 0xFFFF)
            reader.fail("codes", "a list of section codes");
        part.codes.push_back(quint16(code.toInt()));
    }
    return part;
}

InstallationRecord readInstallation(const QJsonObject &object, QString &errorText)
{
    MemberReader reader(object, errorText);
    InstallationRecord installation;
    installation.run = whole<quint32>(reader, "run");
    const QString phase = reader.text("phase");
    bool isKnown = false;
    for (const auto &entry : PhaseNames) {
        if (phase == QLatin1String(entry.name)) {
            installation.phase = entry.phase;
            isKnown = true;
        }
    }
    if (!isKnown)
        reader.fail("phase", "the name of a phase");
    installation.result = int(reader.number("result", 1, 3));
    installation.image = readImage(reader.object("image"), errorText);
    installation.deletesImage = reader.boolean("deletesImage");
    installation.bricksIfCut = reader.flag("bricksIfCut");
    for (const QJsonValue part : reader.array("parts"))
        installation.parts.push_back(readPart(part.toObject(), errorText));
    for (const QJsonValue value : reader.array("sections")) {
        MemberReader section(value.toObject(), errorText);
        installation.sections.push_back(readKey(section));
    }
    return installation;
}

} // namespace

QByteArray DeviceRecord::toJson() const
{
    QJsonArray sectionList;
    for (const auto &[key, versions] : sections) {
        QJsonObject section = toObject(key);
        section.insert(QLatin1String("running"), versions.running);
        section.insert(QLatin1String("installed"), versions.installed);
        sectionList.append(section);
    }
    QJsonObject object {
        { "format", Format },     { "modelId", modelId },           { "serial", serial },
        { "runs", qint64(runs) }, { "restarts", qint64(restarts) }, { "sections", sectionList },
    };
    QJsonArray firmwareList;
    for (const auto &[key, fileName] : firmware) {
        QJsonObject entry = toObject(key);
        entry.insert(QLatin1String("fileName"), fileName);
        firmwareList.append(entry);
    }
    if (!firmwareList.isEmpty())
        object.insert(QLatin1String("firmware"), firmwareList);
    if (isStoring)
        object.insert(QLatin1String("storing"), true);
    if (isBricked)
        object.insert(QLatin1String("bricked"), true);
    if (image)
        object.insert(QLatin1String("image"), toObject(*image));
    if (installation)
        object.insert(QLatin1String("installation"), toObject(*installation));
    return QJsonDocument(object).toJson();
}

std::optional<DeviceRecord> DeviceRecord::fromJson(const QByteArray &json, QString &errorText)
{
    errorText.clear();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (!document.isObject()) {
        errorText = error.error == QJsonParseError::NoError ? QString::fromLatin1("not an object")
                                                            : error.errorString();
        return {};
    }
    const QJsonObject object = document.object();
    MemberReader reader(object, errorText);
    DeviceRecord record;
    reader.number("format", Format, Format);
    record.modelId = whole<quint16>(reader, "modelId");
    record.serial = reader.text("serial");
    record.runs = whole<quint32>(reader, "runs");
    record.restarts = whole<quint32>(reader, "restarts");
    for (const QJsonValue value : reader.array("sections")) {
        MemberReader section(value.toObject(), errorText);
        const SectionKey key = readKey(section);
        record.sections[key] = { section.text("running"), section.text("installed") };
    }
    if (object.contains(QLatin1String("firmware"))) {
        for (const QJsonValue value : reader.array("firmware")) {
            MemberReader entry(value.toObject(), errorText);
            const SectionKey key = readKey(entry);
            record.firmware[key] = readFileName(entry, "fileName");
        }
    }
    record.isStoring = reader.flag("storing");
    record.isBricked = reader.flag("bricked");
    if (object.contains(QLatin1String("image")))
        record.image = readImage(reader.object("image"), errorText);
    if (object.contains(QLatin1String("installation")))
        record.installation = readInstallation(reader.object("installation"), errorText);
    if (!errorText.isEmpty())
        return {};
    return record;
}

} // namespace Velmar::Simulator
