#include "prooftest.h"

#include <QtTest>

#include <utility>

ProofTest::ProofTest(Trial::Road road, std::vector<ProofRow> rows, int network)
    : m_proof(road, std::move(rows), network)
{
}

void ProofTest::initTestCase()
{
    m_proof.run();
}

void ProofTest::row_data()
{
    QTest::addColumn<int>("index");
    const auto &rows = m_proof.rows();
    for (std::size_t i = 0; i < rows.size(); ++i)
        QTest::newRow(rows.at(i).name) << int(i);
}

void ProofTest::row()
{
    QFETCH(int, index);
    m_proof.check(std::size_t(index));
}
