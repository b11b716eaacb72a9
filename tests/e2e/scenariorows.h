#ifndef TESTS_E2E_SCENARIOROWS_H
#define TESTS_E2E_SCENARIOROWS_H

#include <QtTest>

/*! Makes a row "index" of test data for each of \a scenarios, under its name. */
template<typename Scenarios> void addScenarioRows(const Scenarios &scenarios)
{
    QTest::addColumn<int>("index");
    for (std::size_t i = 0; i < scenarios.size(); ++i)
        QTest::newRow(scenarios.at(i).name) << int(i);
}

#endif // TESTS_E2E_SCENARIOROWS_H
