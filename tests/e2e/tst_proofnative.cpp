#include "proof.h"

#include <QtTest>

namespace {

const std::vector<ProofRow> Rows {
    { "nothing", {}, Blow::None, {}, "confirmed", 0, Firmware::New, 1 },
    // Its worker ends with it.
    { "host killed while sending",
      { { "slow-link=1000000" }, {}, {} },
      Blow::HostKilled,
      { "send" },
      "",
      -1,
      Firmware::Old,
      0 },
    // Its worker goes on, and restarts the device at the end.
    { "host killed while installing",
      { {}, {}, { "--install-ms", "3000" } },
      Blow::HostKilled,
      { "install" },
      "",
      -1,
      Firmware::New,
      1 },
    { "worker killed while sending",
      { { "slow-link=1000000" }, {}, {} },
      Blow::WorkerKilled,
      { "send" },
      "worker-died",
      1,
      Firmware::Old,
      0 },
    // Another worker watches the device to its end.
    { "worker killed while installing",
      { {}, {}, { "--install-ms", "3000" } },
      Blow::WorkerKilled,
      { "install" },
      "confirmed",
      0,
      Firmware::New,
      1 },
    { "device silent while sending",
      { { "silent=send" }, {}, {} },
      Blow::None,
      {},
      "silent-device",
      1,
      Firmware::Old,
      0 },
    { "device silent while installing",
      { { "silent=install" }, {}, { "--install-ms", "2000" } },
      Blow::None,
      {},
      "device-lost",
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
      "silent-device",
      1,
      Firmware::Old,
      0 },
    { "device gone while installing",
      { { "gone=install" }, {}, { "--install-ms", "2000" } },
      Blow::None,
      {},
      "device-lost",
      5,
      Firmware::Old,
      0 },
    { "device gone afterwards",
      { { "gone=done" }, {}, { "--install-ms", "2000" } },
      Blow::None,
      {},
      "device-lost",
      5,
      Firmware::New,
      0 },
    { "device restarts by itself while sending",
      { { "restarts-sending" }, {}, {} },
      Blow::None,
      {},
      "send-failed",
      1,
      Firmware::Old,
      1 },
    { "device restarts by itself while installing",
      { { "restarts" }, {}, { "--install-ms", "2000" } },
      Blow::None,
      {},
      "not-installed",
      1,
      Firmware::Old,
      1 },
    { "device lies",
      { { "lie" }, {}, { "--install-ms", "1000" } },
      Blow::None,
      {},
      "not-installed",
      1,
      Firmware::Old,
      1 },
    { "device shows an old success",
      { { "old-result=2:1" }, {}, { "--install-ms", "8000" } },
      Blow::None,
      {},
      "confirmed",
      0,
      Firmware::New,
      1 },
    { "device shows an old failure",
      { { "old-result=3:1" }, {}, { "--install-ms", "8000" } },
      Blow::None,
      {},
      "confirmed",
      0,
      Firmware::New,
      1 },
    { "device fails to install",
      { { "install-fails" }, {}, { "--install-ms", "1000" } },
      Blow::None,
      {},
      "install-failed",
      1,
      Firmware::Old,
      1 },
    { "disk too small for the copy", {}, Blow::DiskTooSmall, {}, "disk-full", 1, Firmware::Old, 0 },
    { "disk full while the image is built",
      { { "slow-link=2000" }, {}, {} },
      Blow::DiskFilled,
      { "plan", 0 },
      "prepare-failed",
      1,
      Firmware::Old,
      0 },
    { "read-only package", {}, Blow::PackageReadOnly, {}, "confirmed", 0, Firmware::New, 1 },
    // The library does not see that, but the check of its image does.
    { "image larger than files may be",
      {},
      Blow::FileSizeLimited,
      {},
      "plan-mismatch",
      1,
      Firmware::Old,
      0 },
    { "two hosts at once",
      { {}, {}, { "--install-ms", "2000" } },
      Blow::SecondHost,
      { "install" },
      "confirmed",
      0,
      Firmware::New,
      1 },
};

} // namespace

/*! A native upgrade against everything that may befall it: always a true verdict, a sound device,
    nothing left behind, and a way on. */
class tst_ProofNative : public QObject
{
    Q_OBJECT

    Proof m_proof { Trial::Road::Native, Rows, 94 };

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

QTEST_GUILESS_MAIN(tst_ProofNative)
#include "tst_proofnative.moc"
