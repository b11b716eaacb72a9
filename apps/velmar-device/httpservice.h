#ifndef VELMARDEVICE_HTTPSERVICE_H
#define VELMARDEVICE_HTTPSERVICE_H

#include "devicecalls.h"
#include "faults.h"
#include "generation.h"
#include "serversockets.h"

#include <records/devicerecords.h>

#include <QHostAddress>
#include <QJsonArray>
#include <QString>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class ContentReader;
struct Request;
struct Response;
class Server;
} // namespace httplib

namespace Velmar::BizModel {
struct s_DeviceConfig;
}

namespace Velmar::Simulator {

class HttpUpgrade;
class Mishaps;
class Trace;

/*!
    The device's HTTP service, from its start to the next restart of the device.

    Its requests are served by threads of the HTTP library. They touch nothing of the device: what
    they need of it is done by DeviceCalls in the device's thread, in which this object lives.
*/
class HttpService
{
public:
    static constexpr quint16 Port = 8080; //!< hosts know no other

    /*! What the service has to know; the references have to outlive it. */
    struct Settings {
        Generation generation;
        const Faults &faults;
        Mishaps &mishaps;
        const BizModel::s_DeviceConfig &model;
        QString uploadFolder; //!< for files on their way
    };

    HttpService(const Settings &settings, HttpUpgrade &upgrade, Trace &trace);

    /*! Ends all requests and waits for their threads. */
    ~HttpService();

    /*! Listens on \a address. False, with \a errorText set, if it cannot. To be called once. */
    bool start(const QHostAddress &address, QString &errorText);

private:
    HttpService(const HttpService &) = delete;
    HttpService &operator=(const HttpService &) = delete;

    // In threads of the library.
    void upload(const httplib::Request &request, httplib::Response &response,
                const httplib::ContentReader &reader);
    void takeUpload(const httplib::Request &request, httplib::Response &response,
                    const httplib::ContentReader &reader, QJsonArray &shape);
    void poll(const httplib::Request &request, httplib::Response &response);
    bool answerPoll(httplib::Response &response);
    void answerForEver(httplib::Response &response, const std::string &beginning);
    bool noteSending(const ServerSockets::Guard &connection, int percent);
    bool isHung(const ServerSockets::Guard &connection);
    std::string pollText(const ProtoModel::Auxiliary::s_UpgradePercent &progress, int number) const;
    void trace(const httplib::Request &request, const httplib::Response &response,
               const QJsonArray &shape);

    const Settings m_settings;
    HttpUpgrade &m_upgrade; // for the device's thread
    Trace &m_trace; // for the device's thread
    DeviceCalls m_calls;
    ServerSockets m_sockets;
    std::atomic<int> m_uploads { 0 };
    std::atomic<int> m_polls { 0 };
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_HTTPSERVICE_H
