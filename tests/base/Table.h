#pragma once
// Data-driven tests over an array of row structs, each named by its first member.

#include <QTest>

// Records are built with designated initializers, which GCC 12 warns about.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

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
