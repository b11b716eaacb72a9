#include "proof.h"

#include <QtTest>

namespace {

const std::vector<ProofRow> Rows {
    { "nothing", {}, Blow::None, {}, "confirmed", 0, Firmware::New, 1 },
    // Its worker writes on: half a firmware is worse than a new one.
    { "host killed while sending",
      { { "register-slow=100" }, {}, {} },
      Blow::HostKilled,
      { "send" },
      "",
      -1,
      Firmware::New,
      1 },
    { "host killed while the device stores",
      { { "brick", "register-slow=100" }, {}, { "--install-ms", "3000" } },
      Blow::HostKilled,
      { "send", 95 },
      "",
      -1,
      Firmware::New,
      1 },
    { "worker killed while sending",
      { { "register-slow=100" }, {}, {} },
      Blow::WorkerKilled,
      { "send" },
      "not-installed",
      1,
      Firmware::Old,
      0 },
    { "worker killed while the device stores",
      { { "brick", "register-slow=100" }, {}, { "--install-ms", "3000" } },
      Blow::WorkerKilled,
      { "send", 95 },
      "confirmed",
      0,
      Firmware::New,
      1 },
    { "device silent while sending",
      { { "silent=send" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::Old,
      0 },
    { "device silent at the last write",
      { { "silent=install" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::Old,
      0 },
    { "device silent behind the last write",
      { { "silent=done" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::New,
      0 },
    { "device silent at the restart",
      { { "silent=restart" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::New,
      0 },
    { "device gone while sending",
      { { "gone=send" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::Old,
      0 },
    { "device gone at the last write",
      { { "gone=install" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::Old,
      0 },
    { "device gone behind the last write",
      { { "gone=done" }, {}, {} },
      Blow::None,
      {},
      "not-returned",
      5,
      Firmware::New,
      0 },
    { "device restarts by itself while sending",
      { { "restarts-sending" }, {}, {} },
      Blow::None,
      {},
      "not-installed",
      1,
      Firmware::Old,
      1 },
    { "device restarts by itself at the last write",
      { { "restarts" }, {}, {} },
      Blow::None,
      {},
      "not-installed",
      1,
      Firmware::Old,
      1 },
    { "device lies", { { "lie" }, {}, {} }, Blow::None, {}, "not-installed", 1, Firmware::Old, 1 },
    { "device shows an old result",
      { { "old-result=3:0" }, {}, {} },
      Blow::None,
      {},
      "confirmed",
      0,
      Firmware::New,
      1 },
    { "device refuses a write",
      { { "register-ack=20" }, {}, {} },
      Blow::None,
      {},
      "send-failed",
      1,
      Firmware::Old,
      0 },
    { "disk too small for the copy", {}, Blow::DiskTooSmall, {}, "disk-full", 1, Firmware::Old, 0 },
    { "disk full before the plain copy is made",
      { { "slow-link=2000" }, {}, {} },
      Blow::DiskFilled,
      { "plan", 0 },
      "send-failed",
      1,
      Firmware::Old,
      0 },
    { "read-only package", {}, Blow::PackageReadOnly, {}, "confirmed", 0, Firmware::New, 1 },
    { "two hosts at once",
      { { "register-slow=100" }, {}, {} },
      Blow::SecondHost,
      { "send" },
      "confirmed",
      0,
      Firmware::New,
      1 },
};

} // namespace

/*! An upgrade register by register against everything that may befall it: always a true verdict, a sound device,
    nothing left behind, and a way on. */
class tst_ProofRegisters : public QObject
{
    Q_OBJECT

    Proof m_proof { Trial::Road::Registers, Rows, 96 };

private Q_SLOTS:
    void initTestCase() { m_proof.run(); }

    void row_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < Rows.size(); ++i)
            QTest::newRow(Rows.at(i).name) << int(i);
    }
    void row()
    {
        QFETCH(int, index);
        m_proof.check(std::size_t(index));
    }
};

QTEST_GUILESS_MAIN(tst_ProofRegisters)
#include "tst_proofregisters.moc"
