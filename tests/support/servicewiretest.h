// SPDX-License-Identifier: MIT
#pragma once

#include "devservicefixture.h"
#include "servicewire.h"

#include <QObject>

// The fixture of devservice's own tests: one service for the test program, reset and signed
// in afresh before every test function, and requests written out by hand.
class ServiceWireTest : public QObject {
    Q_OBJECT

protected:
    DevService m_service;
    ServiceWire m_wire{m_service};

private Q_SLOTS:
    void initTestCase();
    void init();
};
