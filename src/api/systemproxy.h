// SPDX-License-Identifier: MIT
#pragma once

// The proxy the service and object-store requests go through: the one the platform's own HTTP
// client would take for the same address. A photographer on a studio or hotel network that
// only lets traffic out through a proxy has set it once, for the whole system.
class SystemProxy {
public:
    // From then on every request of the process asks the platform which proxy, if any, to use.
    static void follow();
};
