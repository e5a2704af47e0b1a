// SPDX-License-Identifier: MIT
#pragma once

#include <string>

class FaultPlan;
class Outage;
class RequestLog;
class ServiceState;

// What every group of routes works with.
struct ServiceContext {
    ServiceState &state;
    RequestLog &log;
    FaultPlan &faults;
    Outage &outage;
    std::string origin;      // "http://127.0.0.1:PORT", or https: where clients reach us
    std::string otherOrigin; // the second listener's, on another port: another origin
    std::string publicHost;  // what presign names as the host of public file addresses
};
