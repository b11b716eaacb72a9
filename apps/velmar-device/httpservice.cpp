#include "httpservice.h"

#include "httpupgrade.h"
#include "mishaps.h"
#include "pollfaults.h"
#include "progresstext.h"
#include "trace.h"
#include "uploadreader.h"

#include <velmarbizmodel/deviceconfig.h>

#include <QJsonObject>

#include <httplib.h>

#include <chrono>

namespace Velmar::Simulator {

namespace {

constexpr int Ok = 200;
constexpr int BadRequest = 400;
constexpr int Conflict = 409;
constexpr int Unprocessable = 422;
constexpr int Unavailable = 503;
constexpr int StallStepMs = 50; // between two looks whether the host is still there
constexpr int StreamedSize = 65536; // bytes at a time of an answer without an end
constexpr int StreamStepMs = 1; // between these

constexpr char UploadType[] = "multipart/form-data;boundary=----weasdashDsdesd";
constexpr char PollType[] = "application/x-www-form-urlencoded";
constexpr char JsonType[] = "application/json";

int statusOf(const Outcome &outcome)
{
    switch (outcome.ack) {
    case LinkAck::Accepted:
        return Ok;
    case LinkAck::NotNow:
        return Conflict;
    case LinkAck::WrongArguments:
        return BadRequest;
    default:
        return Unprocessable;
    }
}

void setAnswer(httplib::Response &response, int status, const std::string &body)
{
    response.status = status;
    response.set_content(body, "text/plain");
}

/*! Reads the body to its end: an answer ahead of it would be lost in the reset that follows. */
void swallow(const httplib::Request &request, const httplib::ContentReader &reader)
{
    const auto take = [](const char *, std::size_t) {
        return true;
    };
    if (request.is_multipart_form_data())
        reader([](const httplib::MultipartFormData &) { return true; }, take);
    else
        reader(take);
}

/*! \a bytes as they are: of a body that it is given whole, the library makes what it likes. */
void setBody(httplib::Response &response, const std::string &bytes)
{
    response.set_content_provider(
        bytes.size(), JsonType,
        [bytes](std::size_t offset, std::size_t length, httplib::DataSink &sink) {
            return sink.write(bytes.data() + offset, length);
        });
}

void listenAlone(socket_t socket)
{
    // The library would share the port with another device of the same address.
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
}

} // namespace

HttpService::HttpService(const Settings &settings, HttpUpgrade &upgrade, Trace &trace)
    : m_settings(settings)
    , m_upgrade(upgrade)
    , m_trace(trace)
    , m_server(std::make_unique<httplib::Server>())
{
    m_server->set_socket_options(listenAlone);
    // A request each: an idle connection would keep the device from restarting at once.
    m_server->set_keep_alive_max_count(1);
    m_server->set_keep_alive_timeout(1);
    m_server->set_read_timeout(std::chrono::seconds(60));
    m_server->Post(
        "/uploadUpgrade",
        [this](const httplib::Request &request, httplib::Response &response,
               const httplib::ContentReader &reader) { upload(request, response, reader); });
    m_server->Get("/getUpgradeRate",
                  [this](const httplib::Request &request, httplib::Response &response) {
                      poll(request, response);
                  });
}

HttpService::~HttpService()
{
    m_calls.stop();
    m_sockets.endAll();
    if (!m_thread.joinable())
        return;
    m_server->stop();
    m_thread.join();
}

bool HttpService::start(const QHostAddress &address, QString &errorText)
{
    if (!m_server->bind_to_port(address.toString().toStdString(), Port)) {
        errorText = QString::fromLatin1("The device cannot listen for HTTP on %1:%2.")
                        .arg(address.toString())
                        .arg(Port);
        return false;
    }
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    // It cannot be stopped before it runs.
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void HttpService::upload(const httplib::Request &request, httplib::Response &response,
                         const httplib::ContentReader &reader)
{
    QJsonArray shape;
    takeUpload(request, response, reader, shape);
    trace(request, response, shape);
}

void HttpService::takeUpload(const httplib::Request &request, httplib::Response &response,
                             const httplib::ContentReader &reader, QJsonArray &shape)
{
    const ServerSockets::Guard connection(m_sockets, request.remote_addr, request.remote_port);
    if (isHung(connection)) {
        setAnswer(response, Unavailable, "the device is silent");
        return;
    }
    if (request.get_header_value("Content-Type") != UploadType) {
        swallow(request, reader);
        setAnswer(response, BadRequest, "the content is of another type");
        return;
    }
    const Faults &faults = m_settings.faults;
    const auto length = request.get_header_value<std::uint64_t>("Content-Length");
    const std::uint64_t resetAt = length / 100 * std::uint64_t(faults.value(Fault::HttpReset, 100));
    UploadReader upload(
        QString::fromLatin1("%1/http-%2").arg(m_settings.uploadFolder).arg(++m_uploads));
    int percentNoted = 0;
    const bool isWhole = reader(
        [&upload](const httplib::MultipartFormData &part) {
            upload.beginPart(part.name, part.filename, part.content_type);
            return true;
        },
        [&](const char *bytes, std::size_t count) {
            upload.take(bytes, count);
            const auto percent =
                length == 0 ? 0 : int(std::uint64_t(upload.received()) * 100 / length);
            if (percent != percentNoted && !noteSending(connection, percentNoted = percent))
                return false;
            return !faults.isSet(Fault::HttpReset) || std::uint64_t(upload.received()) < resetAt;
        });
    upload.finish(isWhole);
    shape = upload.shape();
    if (faults.isSet(Fault::HttpReset)) {
        connection.reset();
        setAnswer(response, BadRequest, "a fault resets the connection");
    } else if (!upload.fault().isEmpty()) {
        setAnswer(response, BadRequest, upload.fault().toStdString());
    } else if (faults.isSet(Fault::HttpStatus)) {
        setAnswer(response, int(faults.value(Fault::HttpStatus, 0)), "ok");
    } else {
        const ReceivedUpload received { upload.path(), upload.sha256(), upload.controlText() };
        Outcome outcome;
        if (!m_calls.call([&] { outcome = m_upgrade.install(received); }))
            setAnswer(response, Unavailable, "the device restarts");
        else
            setAnswer(response, statusOf(outcome),
                      outcome.isAccepted() ? "ok" : outcome.errorText.toStdString());
    }
}

void HttpService::poll(const httplib::Request &request, httplib::Response &response)
{
    const ServerSockets::Guard connection(m_sockets, request.remote_addr, request.remote_port);
    if (request.get_header_value("Content-Type") != PollType || !request.body.empty())
        setAnswer(response, BadRequest, "this is no poll");
    else if (isHung(connection) || !answerPoll(response))
        setAnswer(response, Unavailable, "the device restarts");
    trace(request, response, {});
}

/*! False, once the connection is of no use any more, if a fault of the device is due at
    \a percent. */
bool HttpService::noteSending(const ServerSockets::Guard &connection, int percent)
{
    if (!m_settings.mishaps.watchesTransfers())
        return true;
    m_calls.call([this, percent] { m_settings.mishaps.noteSending(percent); });
    return !isHung(connection);
}

/*! Whether the device does not answer any more. Waits then until the host or the device itself ends
    the connection. */
bool HttpService::isHung(const ServerSockets::Guard &connection)
{
    bool isMute = false;
    m_calls.call([this, &isMute] { isMute = m_settings.mishaps.isMute(); });
    if (!isMute)
        return false;
    while (connection.isOpen() && m_calls.wait(StallStepMs)) { }
    connection.reset(); // so that no answer leaves
    return true;
}

bool HttpService::answerPoll(httplib::Response &response)
{
    const Faults &faults = m_settings.faults;
    if (!m_calls.wait(int(faults.value(Fault::HttpSlow, 0))))
        return false;
    ProtoModel::Auxiliary::s_UpgradePercent progress;
    if (!m_calls.call([this, &progress] { progress = m_upgrade.progress(); }))
        return false;
    const std::string text = pollText(progress, ++m_polls);
    response.status = int(faults.value(Fault::PollStatus, Ok));
    if (faults.isSet(Fault::EndlessDocuments)) {
        answerForEver(response, beginningOfUnknownList(text));
        return true;
    }
    if (faults.isSet(Fault::GzipBomb)) {
        response.set_header("Content-Encoding", "gzip");
        setBody(response, gzipBomb(text, int(faults.value(Fault::GzipBomb, 0))));
        return true;
    }
    if (!faults.isSet(Fault::HttpTruncate) && !faults.isSet(Fault::HttpStall)) {
        response.set_content(text, JsonType);
        return true;
    }
    const bool isStalled = faults.isSet(Fault::HttpStall);
    response.set_content_provider(
        text.size(), JsonType,
        [this, text, isStalled](std::size_t offset, std::size_t, httplib::DataSink &sink) {
            const std::size_t half = text.size() / 2;
            if (offset < half)
                return sink.write(text.data() + offset, half - offset);
            while (isStalled && sink.is_writable() && m_calls.wait(StallStepMs)) { }
            return false;
        });
    return true;
}

std::string HttpService::pollText(const ProtoModel::Auxiliary::s_UpgradePercent &progress,
                                  int number) const
{
    const Faults &faults = m_settings.faults;
    const bool isOlder = (m_settings.generation == Generation::Older)
        != (faults.isSet(Fault::HttpSwitch) && number >= faults.value(Fault::HttpSwitch, 0));
    const Generation generation = isOlder ? Generation::Older : Generation::Newer;
    return spoiltText(progressText(progress, generation, m_settings.model), faults);
}

/*! A text of which \a beginning is the first part: it ends there, or never. */
void HttpService::answerForEver(httplib::Response &response, const std::string &beginning)
{
    constexpr int BrokenOff = 0; // the first of the fault's words
    if (m_settings.faults.value(Fault::EndlessDocuments, BrokenOff) == BrokenOff) {
        response.set_content(beginning, JsonType);
        return;
    }
    response.set_content_provider(
        JsonType, [this, beginning](std::size_t offset, httplib::DataSink &sink) {
            std::string piece = offset == 0 ? beginning : std::string();
            while (piece.size() < StreamedSize)
                piece += ",1";
            return m_calls.wait(StreamStepMs) && sink.write(piece.data(), piece.size());
        });
}

void HttpService::trace(const httplib::Request &request, const httplib::Response &response,
                        const QJsonArray &shape)
{
    QJsonObject headers;
    for (const auto &[name, value] : request.headers) {
        // The library adds headers of its own, by which it tells the two ends.
        const bool isOwn = name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR"
            || name == "LOCAL_PORT";
        if (!isOwn)
            headers.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    const QJsonObject fields { { "method", QString::fromStdString(request.method) },
                               { "path", QString::fromStdString(request.path) },
                               { "headers", headers },
                               { "parts", shape },
                               { "status", response.status } };
    const QString peer = QString::fromLatin1("%1:%2")
                             .arg(QString::fromStdString(request.remote_addr))
                             .arg(request.remote_port);
    m_calls.call([&] { m_trace.http(peer, fields); });
}

} // namespace Velmar::Simulator
