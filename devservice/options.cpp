// SPDX-License-Identifier: MIT
#include "options.h"

#include <QCommandLineParser>
#include <QStringList>
#include <cstdio>
#include <cstdlib>

namespace {

std::optional<Options> refuse(const QCommandLineParser &parser, const QString &problem) {
    std::fprintf(stderr, "devservice: %s\n\n%s", qPrintable(problem),
                 qPrintable(parser.helpText()));
    return std::nullopt;
}

} // namespace

std::optional<Options> Options::parse(int argc, char **argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Local stand-in for the photo-selection service and its object store.");
    const QCommandLineOption port("port", "Port to listen on; 0 or absent picks a free one.", "N",
                                  "0");
    const QCommandLineOption host("host", "Address to listen on.", "HOST", "127.0.0.1");
    const QCommandLineOption dataDir(
        "data-dir", "Where stored objects go; default: a temporary folder removed at exit.", "DIR");
    const QCommandLineOption tlsCert("tls-cert", "PEM certificate: serve https.", "FILE");
    const QCommandLineOption tlsKey("tls-key", "PEM private key of --tls-cert.", "FILE");
    const QCommandLineOption publicHost(
        "public-host", "Host that presign replies name for public file URLs; default HOST:PORT.",
        "HOST");
    const QCommandLineOption presignLifetime(
        "presign-lifetime-ms",
        "How long an upload's presigned policy is good for, in milliseconds; default one hour.",
        "N", "3600000");
    parser.addOptions({port, host, dataDir, tlsCert, tlsKey, publicHost, presignLifetime});
    const QCommandLineOption help = parser.addHelpOption();

    if (!parser.parse(arguments))
        return refuse(parser, parser.errorText());
    if (parser.isSet(help)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        std::exit(0);
    }
    if (!parser.positionalArguments().isEmpty())
        return refuse(parser, "unexpected argument " + parser.positionalArguments().first());

    Options options;
    bool numeric = false;
    options.port = parser.value(port).toInt(&numeric);
    if (!numeric || options.port < 0 || options.port > 65535)
        return refuse(parser, "--port needs a number from 0 to 65535");
    options.host = parser.value(host).toStdString();
    options.dataDir = parser.value(dataDir).toStdString();
    options.tlsCertificate = parser.value(tlsCert).toStdString();
    options.tlsKey = parser.value(tlsKey).toStdString();
    options.publicHost = parser.value(publicHost).toStdString();
    const qint64 lifetime = parser.value(presignLifetime).toLongLong(&numeric);
    if (!numeric || lifetime < 0 || lifetime > longestPresignLifetime.count())
        return refuse(parser, QStringLiteral("--presign-lifetime-ms needs a number from 0 to %1")
                                  .arg(longestPresignLifetime.count()));
    options.presignLifetime = std::chrono::milliseconds(lifetime);
    if (options.tlsCertificate.empty() != options.tlsKey.empty())
        return refuse(parser, "--tls-cert and --tls-key go together");
    return options;
}
