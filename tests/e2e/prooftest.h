#ifndef TESTS_E2E_PROOFTEST_H
#define TESTS_E2E_PROOFTEST_H

#include "proof.h"

#include <QObject>

/*! A table of trials as a test: a row of the one is a row of the other. */
class ProofTest : public QObject
{
    Q_OBJECT

public:
    /*! As Proof takes them. */
    ProofTest(Trial::Road road, std::vector<ProofRow> rows, int network);

private Q_SLOTS:
    void initTestCase();
    void row_data();
    void row();

private:
    Proof m_proof;
};

#endif // TESTS_E2E_PROOFTEST_H
