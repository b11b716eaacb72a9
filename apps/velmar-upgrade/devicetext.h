#ifndef VELMARUPGRADE_DEVICETEXT_H
#define VELMARUPGRADE_DEVICETEXT_H

#include "commandline.h"
#include "device/devicefacts.h"
#include "device/modelnames.h"
#include "inquiry.h"
#include "process/hostexitcode.h"

#include <QJsonObject>
#include <QString>

#include <chrono>
#include <functional>

/*! For each step of a question to a device. */
constexpr std::chrono::seconds AnswerLimit { 5 };

/*! Tells about a device, and ends the inquiry. */
using Teller = std::function<Velmar::Host::HostExitCode(Inquiry &inquiry,
                                                        const Velmar::Host::DeviceFacts &facts,
                                                        const Velmar::Host::ModelNames &names)>;

/*! Has \a tell tell about the device of \a options; its end, or that of an error, which was told. */
Velmar::Host::HostExitCode askDevice(const CommandLine &options, const Teller &tell);

/*! What the device is, in one printable line. */
QString deviceLine(const Velmar::Host::DeviceFacts &facts, const Velmar::Host::ModelNames &names);

/*! The name of the section \a code of \a part in the catalogue in use; the number if it has none. */
QString sectionName(const Velmar::Host::DeviceFacts &facts,
                    const Velmar::ProtoModel::Auxiliary::s_DeviceVersionPart &part, quint16 code);

/*! What the device is, for programs: address, model, serial number, name, cards. */
QJsonObject deviceObject(const Velmar::Host::DeviceFacts &facts,
                         const Velmar::Host::ModelNames &names);

#endif // VELMARUPGRADE_DEVICETEXT_H
