// SPDX-License-Identifier: MIT
#include "servicewiretest.h"

#include <QTest>

void ServiceWireTest::initTestCase()
{
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
}

void ServiceWireTest::init()
{
    QVERIFY(m_wire.resetService());
}
