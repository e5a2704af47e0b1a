// SPDX-License-Identifier: MIT
#include "adminroutes.h"
#include "faultplan.h"
#include "galleryroutes.h"
#include "options.h"
#include "outage.h"
#include "requestlog.h"
#include "servicecontext.h"
#include "serviceroutes.h"
#include "servicestate.h"
#include "storageroutes.h"
#include "workerpool.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <httplib.h>
#include <memory>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::size_t workerThreads = 48;
// The other origin only sees what a test sends it on purpose, or what a client should not send.
constexpr std::size_t otherOriginWorkerThreads = 8;
constexpr std::size_t workerStackBytes = 32 * 1024 * 1024;

bool isAdminCall(const httplib::Request &request) {
    return request.path.starts_with("/__admin/");
}

// `arrivals`, when given, records every request before it is routed, whatever its path. An
// outage takes every call before anything else sees it, but those of the admin API where it
// is served (`servesAdmin`).
std::unique_ptr<httplib::Server> makeServer(const Options &options, std::size_t threads,
                                            Outage &outage, bool servesAdmin,
                                            RequestLog *arrivals) {
    std::unique_ptr<httplib::Server> server;
    if (options.tls())
        server = std::make_unique<httplib::SSLServer>(options.tlsCertificate.c_str(),
                                                      options.tlsKey.c_str());
    else
        server = std::make_unique<httplib::Server>();
    server->new_task_queue = [threads] { return new WorkerPool(threads, workerStackBytes); };
    server->set_keep_alive_max_count(100);
    server->set_keep_alive_timeout(3);
    // Replies go out at once, as production servers send them: with Nagle's algorithm on, the
    // body of a reply written after its headers waits for the client's delayed acknowledgement
    // of the headers, tens of milliseconds on every call.
    server->set_tcp_nodelay(true);
    server->set_read_timeout(30);
    server->set_write_timeout(30);
    server->set_payload_max_length(std::size_t{4} << 30);
    const auto outageTakes = [&outage, servesAdmin](const httplib::Request &request,
                                                    httplib::Response &response) {
        if ((servesAdmin && isAdminCall(request)) || !outage.take(request))
            return false;
        response.status = 503; // written into nothing: the connection is gone already
        return true;
    };
    // httplib answers "100 Continue" before routing; a service that is down must not.
    server->set_expect_100_continue_handler(
        [outageTakes](const httplib::Request &request, httplib::Response &response) {
            return outageTakes(request, response) ? 503 : 100;
        });
    // httplib compresses every JSON reply with brotli at its slowest setting, milliseconds of
    // CPU for a few dozen bytes, on the machine the client under test runs on. Replies go out
    // as they are: the header is dropped before any handler sees, or records, the request.
    server->set_pre_routing_handler(
        [arrivals, outageTakes](const httplib::Request &request, httplib::Response &response) {
            if (outageTakes(request, response))
                return httplib::Server::HandlerResponse::Handled;
            const_cast<httplib::Request &>(request).headers.erase("Accept-Encoding");
            if (arrivals)
                arrivals->addAtOtherOrigin(ReceivedRequest::from(request));
            return httplib::Server::HandlerResponse::Unhandled;
        });
    return server;
}

int bind(httplib::Server &server, const Options &options) {
    if (options.port == 0)
        return server.bind_to_any_port(options.host);
    return server.bind_to_port(options.host, options.port) ? options.port : -1;
}

std::string originOf(const Options &options, int port) {
    return (options.tls() ? "https://" : "http://") + options.host + ':' + std::to_string(port);
}

} // namespace

int main(int argc, char **argv) {
    // SIGINT and SIGTERM are taken by one thread that waits for them; every other thread,
    // started after this, has them blocked. A client hanging up mid-reply is no reason to die.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    const QCoreApplication application(argc, argv); // names the program in --help
    const std::optional<Options> options = Options::parse(argc, argv);
    if (!options)
        return 2;

    std::unique_ptr<QTemporaryDir> temporaryDir;
    std::filesystem::path dataDir = options->dataDir;
    if (dataDir.empty()) {
        temporaryDir = std::make_unique<QTemporaryDir>();
        if (!temporaryDir->isValid()) {
            std::fprintf(stderr, "devservice: no temporary folder for the data\n");
            return 1;
        }
        dataDir = temporaryDir->path().toStdString();
    }

    RequestLog log;
    Outage outage;
    const std::unique_ptr<httplib::Server> server =
        makeServer(*options, workerThreads, outage, true, nullptr);
    // The same service and object store on another port: another origin, as a second host or
    // a proxy in front of the service would be, for the tests of where a client sends what.
    const std::unique_ptr<httplib::Server> otherServer =
        makeServer(*options, otherOriginWorkerThreads, outage, false, &log);
    if (!server->is_valid() || !otherServer->is_valid()) {
        std::fprintf(stderr, "devservice: the TLS certificate or key can't be used\n");
        return 1;
    }
    const int port = bind(*server, *options);
    if (port <= 0) {
        std::fprintf(stderr, "devservice: can't listen on %s:%d\n", options->host.c_str(),
                     options->port);
        return 1;
    }
    const int otherPort = otherServer->bind_to_any_port(options->host);
    if (otherPort <= 0) {
        std::fprintf(stderr, "devservice: can't listen on a second port of %s\n",
                     options->host.c_str());
        return 1;
    }

    const std::string authority = options->host + ':' + std::to_string(port);
    ServiceState state(dataDir, options->presignLifetime);
    FaultPlan faults;
    ServiceContext context{state,
                           log,
                           faults,
                           outage,
                           originOf(*options, port),
                           originOf(*options, otherPort),
                           options->publicHost.empty() ? authority : options->publicHost};
    ServiceRoutes service(context);
    StorageRoutes storage(context);
    GalleryRoutes gallery(context);
    AdminRoutes admin(context);
    for (httplib::Server *listener : {server.get(), otherServer.get()}) {
        service.install(*listener);
        storage.install(*listener);
    }
    gallery.install(*server);
    admin.install(*server);

    std::atomic<bool> finished = false;
    std::atomic<bool> otherFinished = false;
    std::thread otherListener([&] {
        otherServer->listen_after_bind();
        otherFinished = true;
    });
    std::thread signalWaiter([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        faults.interruptWaits();
        outage.stop();
        // A signal that comes before listening has begun would find nothing to stop.
        while (!finished || !otherFinished) {
            server->stop();
            otherServer->stop();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });

    std::printf("listening on %s\n", context.origin.c_str());
    std::fflush(stdout);
    const bool listened = server->listen_after_bind();

    finished = true;
    kill(getpid(), SIGTERM); // lets the waiter go if no signal came
    signalWaiter.join();
    otherListener.join();
    std::fflush(stderr);
    return listened ? 0 : 1;
}
