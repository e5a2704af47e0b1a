// SPDX-License-Identifier: MIT
#include "servicereachability.h"

#include "apiclient.h"
#include "connectivitywatch.h"

#include <QCoroTask>
#include <QPointer>

ServiceReachability::ServiceReachability(APIClient &api, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_connectivity(new ConnectivityWatch(this))
{
    m_probeTimer.setSingleShot(true);
    connect(&m_probeTimer, &QTimer::timeout, this, &ServiceReachability::probe);
    m_stallCheck.setInterval(probeInterval);
    connect(&m_stallCheck, &QTimer::timeout, this, &ServiceReachability::watchForStalls);

    connect(m_connectivity, &ConnectivityWatch::networkMayBeBack, this, [this] {
        // Back on what may be another network: its uplink is measured afresh.
        m_api.forgetUplinkPath();
        if (!m_needed)
            return;
        // Whatever hangs on a connection from before is dead; the probe finds out at once
        // whether the service can be reached, and lets everything go if so.
        m_unreachable = true;
        m_probing = false;
        m_probeTimer.stop();
        startProbing();
    });
    connect(m_connectivity, &ConnectivityWatch::networkLost, this, [this] {
        if (m_needed)
            Q_EMIT networkLost();
    });
    connect(m_connectivity, &ConnectivityWatch::captivePortalChanged, this, [this](bool behind) {
        if (m_needed)
            Q_EMIT captivePortalChanged(behind);
    });
}

bool ServiceReachability::behindCaptivePortal() const
{
    return m_connectivity->behindCaptivePortal();
}

void ServiceReachability::setNeeded(bool needed)
{
    m_needed = needed;
    if (needed && !m_stallCheck.isActive())
        m_stallCheck.start();
    else if (!needed)
        m_stallCheck.stop();
}

void ServiceReachability::answered()
{
    m_unreachable = false;
    Q_EMIT serviceAnswered();
}

void ServiceReachability::startProbing()
{
    if (m_probing)
        return;
    m_probing = true;
    m_probeTimer.start(0);
}

void ServiceReachability::watchForStalls()
{
    if (m_api.replies().longestStall() >= stallLimit)
        startProbing();
}

void ServiceReachability::probe()
{
    [](QPointer<ServiceReachability> self, APIClient *api) -> QCoro::Task<> {
        QCoro::Task<bool> asking = api->probe(probeTimeout);
        const bool answered = co_await asking;
        if (ServiceReachability *watch = self.data())
            watch->probeAnswered(answered);
    }(QPointer<ServiceReachability>(this), &m_api);
}

void ServiceReachability::probeAnswered(bool answered)
{
    if (!answered) {
        m_unreachable = true;
        if (!m_needed) {
            m_probing = false;
            return;
        }
        Q_EMIT unreachable();
        m_probeTimer.start(probeInterval);
        return;
    }
    m_probing = false;
    const bool wasUnreachable = std::exchange(m_unreachable, false);
    // A fresh connection got its answer at once: requests that moved nothing meanwhile hang on
    // connections that died and would not come back in time.
    m_api.replies().abortStalled(wasUnreachable ? stallAfterOutage : stallLimit);
    if (wasUnreachable)
        Q_EMIT reachedAgain();
}
