// SPDX-License-Identifier: MIT
// Prints the addresses the service client of this build talks to, and whether the build has the
// test switches: how tests/build/shippeddefaults.cmake sees what a build made without a preset
// does with the environment that redirects a development build.
#include "apiclient.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    out << "switches " << QUILLMERE_TEST_SWITCHES << '\n'
        << "service " << APIClient::shared().baseURL() << '\n'
        << "storage " << APIClient::shared().defaultStorageHost() << '\n';
    return 0;
}
