// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>

class APIClient;
class ConnectivityWatch;

// Whether the service can be reached while photos are owed: a probe a second after a failure
// that passes until the service answers, a look every second for replies that stall on a dead
// connection, and the platform's word that the network is gone or may be back. Main thread
// only.
class ServiceReachability : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds probeInterval{1000};
    static constexpr std::chrono::milliseconds probeTimeout{3000};
    // A reply that moves nothing for this long, while a fresh connection to the service gets an
    // answer, is on a dead connection.
    static constexpr std::chrono::milliseconds stallLimit{15000};
    static constexpr std::chrono::milliseconds stallAfterOutage{3000};

    explicit ServiceReachability(APIClient &api, QObject *parent = nullptr);

    // Whether anything is owed: the probes and the look for stalls run only then.
    void setNeeded(bool needed);
    // A request of a photo's went through.
    void answered();
    // A request failed in a way that passes: probe until the service answers.
    void startProbing();
    // The platform says the network wants a sign-in in the browser before anything goes out.
    bool behindCaptivePortal() const;

Q_SIGNALS:
    void serviceAnswered();
    // A probe was answered after the service could not be reached.
    void reachedAgain();
    // A probe went unanswered.
    void unreachable();
    // The platform says for certain that there is no network.
    void networkLost();
    // The platform's word on a captive portal changed (while anything is owed).
    void captivePortalChanged(bool behind);

private:
    void probe();
    void probeAnswered(bool answered);
    void watchForStalls();

    APIClient &m_api;
    ConnectivityWatch *m_connectivity;
    QTimer m_probeTimer;
    QTimer m_stallCheck;
    bool m_needed = false;
    bool m_probing = false;
    bool m_unreachable = false;
};
