// SPDX-License-Identifier: MIT
#pragma once

// Caps the data the kernel keeps queued, not yet sent, on each of the process's TCP
// connections.
//
// The kernel lets a connection that is kept busy queue megabytes of data it has not sent yet,
// so that the link never runs dry. An original's megabytes queued there would go out ahead of
// a preview whatever the original's body does once the preview starts: on a 20 Mbit/s uplink,
// most of a second. With the cap, the part of an original that holds back stays in our hands,
// a few dozen milliseconds of link time behind what is already on its way. Qt's HTTP stack
// does not hand out its sockets, so the process's own TCP sockets are looked up instead.
namespace SendQueueLimit {

// Enough to keep a fast uplink busy while Qt fetches the next piece of a body.
constexpr int unsentBytes = 64 * 1024;

// Applies the cap to every TCP connection the process has open now; a no-op where the
// platform has no such cap.
void applyToOpenConnections();

} // namespace SendQueueLimit
