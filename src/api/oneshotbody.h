// SPDX-License-Identifier: MIT
#pragma once

#include "bodyreader.h"

#include <QIODevice>

// The body of one request, which Qt's HTTP stack may read once and never again.
//
// Qt sends a request a second time, on a new connection, when the connection it was sent on
// closes before the whole reply has come: a kept-alive connection that the server had just
// given up, but also a server that did the work and then lost its reply. To send again it
// rewinds the body; a body that cannot be rewound makes it give up with an error instead. The
// service may already have acted on the first copy (a session opened, a photo registered), so
// every request goes with a body of this kind, an empty one included: Qt rewinds even those.
//
// The bytes come from a BodyReader as Qt asks for them, a file's straight from the file: a
// file that fails or comes up short fails the read, and with it the request, rather than send
// other bytes than the length announced.
class OneShotBody : public QIODevice {
    Q_OBJECT
public:
    explicit OneShotBody(BodyReader body, QObject *parent = nullptr);

    // Whether Qt tried to rewind the body, that is, to send the request again.
    bool resendRefused() const { return m_resendRefused; }
    // Whether the body's file failed while it was read.
    bool readFailed() const { return m_body.failed(); }

    bool isSequential() const override { return false; }
    qint64 size() const override { return m_body.size(); }
    bool seek(qint64 position) override;
    bool reset() override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    BodyReader m_body;
    bool m_resendRefused = false;
};
