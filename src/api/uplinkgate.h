// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

// Gives the uplink to the previews. While anyone holds the gate, uploads of lower priority
// (the originals) hold back the rest of their body, so that a preview does not queue behind
// megabytes of an original on a slow link; they go on where they stopped once the last hold
// ends. Lives on the main thread and is used only there.
class UplinkGate : public QObject {
    Q_OBJECT
public:
    // Held by a preview's upload from the moment it is sent until its reply has come.
    class Hold {
    public:
        Hold() = default;
        explicit Hold(UplinkGate *gate);
        Hold(Hold &&other) noexcept;
        Hold &operator=(Hold &&other) noexcept;
        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;
        ~Hold();
        void release();

    private:
        UplinkGate *m_gate = nullptr;
    };

    [[nodiscard]] Hold hold() { return Hold(this); }
    bool isHeld() const { return m_holds > 0; }

Q_SIGNALS:
    // The last hold has ended: held-back bodies may go on.
    void opened();

private:
    int m_holds = 0;
};
