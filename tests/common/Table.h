#pragma once
// Data-driven tests over an array of row structs, each named by its first member.

#include <QTest>

template <typename Row, size_t N> void rows(const Row (&table)[N])
{
    QTest::addColumn<int>("at");
    for (size_t i = 0; i < N; ++i)
        QTest::newRow(table[i].name) << int(i);
}

template <typename Row, size_t N> const Row &row(const Row (&table)[N])
{
    QFETCH(int, at);
    return table[at];
}
