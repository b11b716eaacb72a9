#ifndef VELMARUPGRADE_DEVICETEXT_H
#define VELMARUPGRADE_DEVICETEXT_H

#include "device/devicefacts.h"
#include "device/modelnames.h"
#include "process/logcapture.h"

#include <QJsonObject>
#include <QString>

#include <chrono>
#include <optional>

/*! For each step of a question to a device. */
constexpr std::chrono::seconds AnswerLimit { 5 };

/*! What the device at \a address is, or nothing with the error told. */
std::optional<Velmar::Host::DeviceFacts> askForFacts(const Velmar::Host::DeviceAddress &address,
                                                     const Velmar::Host::LogCapture &log);

/*! What the device is, in one printable line. */
QString deviceLine(const Velmar::Host::DeviceFacts &facts, const Velmar::Host::ModelNames &names);

/*! The name of the section \a code of \a part in the catalogue in use; the number if it has none. */
QString sectionName(const Velmar::Host::DeviceFacts &facts,
                    const Velmar::ProtoModel::Auxiliary::s_DeviceVersionPart &part, quint16 code);

/*! What the device is, for programs: address, model, serial number, name, cards. */
QJsonObject deviceObject(const Velmar::Host::DeviceFacts &facts,
                         const Velmar::Host::ModelNames &names);

#endif // VELMARUPGRADE_DEVICETEXT_H
