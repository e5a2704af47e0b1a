// SPDX-License-Identifier: MIT
// How much of an original its connection is given: what the path's window leaves room for on a
// real connection, a trickle while a preview holds the uplink, and, where the system says
// nothing of the connection, a socket kept as full as any other.
#include "ledbatwindow.h"
#include "uplinkgate.h"
#include "uplinkpacer.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

namespace {

constexpr qint64 aLongBody = 100 * 1024 * 1024;
constexpr qintptr noSocket = -1; // the system can say nothing of it

} // namespace

class UplinkPacerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // A trickle, no more, every half second, however much room the window has.
    void aHeldUplinkGetsATrickle()
    {
        UplinkGate gate;
        UplinkPacer pacer(std::make_shared<LedbatWindow>(), &gate);
        const UplinkGate::Hold hold = gate.hold();
        QCOMPARE(pacer.allowance(noSocket, 0, aLongBody), UplinkPacer::trickleBytes);
        QCOMPARE(pacer.allowance(noSocket, 0, aLongBody), 0);
        QTest::qWait(int(UplinkPacer::trickleInterval.count()) + 50);
        QCOMPARE(pacer.allowance(noSocket, 0, aLongBody), UplinkPacer::trickleBytes);
    }

    void anUnmeasuredSocketIsKeptAsFullAsAnyOther()
    {
        UplinkGate gate;
        UplinkPacer pacer(std::make_shared<LedbatWindow>(), &gate);
        QVERIFY(!pacer.measures());
        QCOMPARE(pacer.allowance(noSocket, 0, aLongBody), UplinkPacer::unmeasuredBuffer);
        QCOMPARE(pacer.allowance(noSocket, 60 * 1024, aLongBody), UplinkPacer::unmeasuredBuffer - 60 * 1024);
        // A few hundred bytes of room wait for more, unless they are all that is left.
        QCOMPARE(pacer.allowance(noSocket, UplinkPacer::unmeasuredBuffer - 300, aLongBody), 0);
        QCOMPARE(pacer.allowance(noSocket, UplinkPacer::unmeasuredBuffer - 300, 200), 300);
    }

    // On a connection the system measures, the room is the window less what is on its way,
    // the bytes still in the program's hands included; once the gate opens, the room is back.
    void aMeasuredConnectionGetsWhatTheWindowLeaves()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QVERIFY(client.waitForConnected(10000));
        QVERIFY(server.waitForNewConnection(10000));

        auto window = std::make_shared<LedbatWindow>();
        UplinkGate gate;
        UplinkPacer pacer(window, &gate);
        const qintptr socket = client.socketDescriptor();
        const qint64 room = pacer.allowance(socket, 0, aLongBody);
#if defined(Q_OS_LINUX)
        QVERIFY(pacer.measures());
        QCOMPARE(room, window->window());
        QCOMPARE(pacer.allowance(socket, 10000, aLongBody), window->window() - 10000);
        {
            const UplinkGate::Hold hold = gate.hold();
            QCOMPARE(pacer.allowance(socket, 0, aLongBody), UplinkPacer::trickleBytes);
        }
        QCOMPARE(pacer.allowance(socket, 0, aLongBody), window->window());
#else
        QCOMPARE(room, pacer.measures() ? window->window() : UplinkPacer::unmeasuredBuffer);
#endif
    }
};

QTEST_GUILESS_MAIN(UplinkPacerTest)
#include "tst_uplinkpacer.moc"
