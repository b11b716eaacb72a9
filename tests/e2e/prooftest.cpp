#include "prooftest.h"

#include "scenariorows.h"

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
    addScenarioRows(m_proof.rows());
}

void ProofTest::row()
{
    QFETCH(int, index);
    m_proof.check(std::size_t(index));
}
