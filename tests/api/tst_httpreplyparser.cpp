// SPDX-License-Identifier: MIT
// The replies an original's own connection reads: every way HTTP/1.1 frames a reply's body,
// interim replies passed over, and whatever is not HTTP, breaks the framing or grows without
// bound refused. Every reply is read whole and then again a byte at a time, with the same result.
#include "httpreplyparser.h"

#include <QTest>

namespace {

HttpReplyParser parsedWhole(const QByteArray &reply, bool closed)
{
    HttpReplyParser parser;
    parser.feed(reply);
    if (closed)
        parser.connectionClosed();
    return parser;
}

HttpReplyParser parsedByteByByte(const QByteArray &reply, bool closed)
{
    HttpReplyParser parser;
    for (const char c : reply)
        parser.feed(QByteArrayView(&c, 1));
    if (closed)
        parser.connectionClosed();
    return parser;
}

} // namespace

class HttpReplyParserTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsEveryFraming_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("closed"); // the connection closed after the reply's bytes
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");

        QTest::newRow("length") << QByteArray("HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nhello")
                                << false << 201 << QByteArray("hello");
        QTest::newRow("no reason phrase") << QByteArray("HTTP/1.1 204\r\n\r\n") << false << 204 << QByteArray();
        QTest::newRow("empty reason phrase") << QByteArray("HTTP/1.1 200 \r\nContent-Length: 0\r\n\r\n")
                                             << false << 200 << QByteArray();
        QTest::newRow("HTTP/1.0") << QByteArray("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok")
                                  << false << 200 << QByteArray("ok");
        QTest::newRow("bare line feeds") << QByteArray("HTTP/1.1 200 OK\nContent-Length: 2\n\nok")
                                         << false << 200 << QByteArray("ok");
        QTest::newRow("chunked") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                               "5\r\nhello\r\n1;name=value\r\n!\r\n0\r\n\r\n")
                                 << false << 200 << QByteArray("hello!");
        QTest::newRow("chunked with trailer") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n"
                                                            "A\r\n0123456789\r\n0\r\nChecksum: x\r\n\r\n")
                                              << false << 200 << QByteArray("0123456789");
        QTest::newRow("chunked wins over length") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\nTransfer-Encoding: chunked\r\n\r\n"
                                                                "2\r\nok\r\n0\r\n\r\n")
                                                  << false << 200 << QByteArray("ok");
        QTest::newRow("until close") << QByteArray("HTTP/1.1 403 Forbidden\r\nConnection: close\r\n\r\n<Error>Policy expired.</Error>")
                                     << true << 403 << QByteArray("<Error>Policy expired.</Error>");
        QTest::newRow("equal lengths listed") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 2, 2\r\nContent-Length: 2\r\n\r\nok")
                                              << false << 200 << QByteArray("ok");
        QTest::newRow("interim replies first") << QByteArray("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"
                                                             "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx")
                                               << false << 200 << QByteArray("x");
        QTest::newRow("not modified has no body") << QByteArray("HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n")
                                                  << false << 304 << QByteArray();
    }
    void readsEveryFraming()
    {
        QFETCH(QByteArray, reply);
        QFETCH(bool, closed);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        for (const HttpReplyParser &parser : {parsedWhole(reply, closed), parsedByteByByte(reply, closed)}) {
            QCOMPARE(parser.state(), HttpReplyParser::State::complete);
            QCOMPARE(parser.status(), status);
            QCOMPARE(parser.body(), body);
            QCOMPARE(parser.bodySize(), body.size());
        }
    }

    void fieldsAreReadWithoutRegardToCase()
    {
        const HttpReplyParser parser =
            parsedWhole("HTTP/1.1 200 OK\r\nx-note:   spaced value \t\r\nETag: \"a\"\r\nContent-Length: 0\r\n\r\n", false);
        QCOMPARE(parser.field("X-Note"), QByteArray("spaced value"));
        QCOMPARE(parser.field("etag"), QByteArray("\"a\""));
        QCOMPARE(parser.field("Absent"), QByteArray());
        QCOMPARE(parser.contentLength(), std::optional<qint64>(0));
        QCOMPARE(parser.fields().size(), 3);
    }

    // Nothing past the end of the reply is taken: the bytes that follow are not the body's.
    void stopsAtTheEndOfTheReply()
    {
        const HttpReplyParser parser = parsedWhole("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nokEXTRA", false);
        QVERIFY(parser.isComplete());
        QCOMPARE(parser.body(), QByteArray("ok"));
        QCOMPARE(parser.bodySize(), 2);
    }

    void cutShortStaysIncomplete_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("half a status line") << QByteArray("HTTP/1.1 20");
        QTest::newRow("head without its end") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n");
        QTest::newRow("short body") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhel");
        QTest::newRow("chunks without the last") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n");
        QTest::newRow("only an interim reply") << QByteArray("HTTP/1.1 100 Continue\r\n\r\n");
    }
    void cutShortStaysIncomplete()
    {
        QFETCH(QByteArray, reply);
        const HttpReplyParser parser = parsedWhole(reply, true);
        QVERIFY(parser.state() == HttpReplyParser::State::head ||
                parser.state() == HttpReplyParser::State::body);
        QCOMPARE(parser.receivedAnything(), !reply.isEmpty());
    }

    void refusesWhatIsNotHttpOrBreaksTheFraming_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("status"); // the status read before the fault, 0 if none
        QTest::newRow("not http") << QByteArray("SSH-2.0-OpenSSH_9.2\r\n") << 0;
        QTest::newRow("html") << QByteArray("<html><body>Proxy error</body></html>\n") << 0;
        QTest::newRow("http/2 preface") << QByteArray("HTTP/2 200\r\n\r\n") << 0;
        QTest::newRow("status of two digits") << QByteArray("HTTP/1.1 20 OK\r\n\r\n") << 0;
        QTest::newRow("status out of range") << QByteArray("HTTP/1.1 700 Odd\r\n\r\n") << 0;
        QTest::newRow("switching protocols") << QByteArray("HTTP/1.1 101 Switching Protocols\r\n\r\n") << 0;
        QTest::newRow("letters in the status") << QByteArray("HTTP/1.1 2x0 OK\r\n\r\n") << 0;
        QTest::newRow("field without a colon") << QByteArray("HTTP/1.1 200 OK\r\nBroken\r\n\r\n") << 200;
        QTest::newRow("folded field") << QByteArray("HTTP/1.1 200 OK\r\nA: b\r\n c\r\n\r\n") << 200;
        QTest::newRow("space in a name") << QByteArray("HTTP/1.1 200 OK\r\nBad Name: x\r\n\r\n") << 200;
        static const char nulInValue[] = "HTTP/1.1 200 OK\r\nA: b\0c\r\n\r\n";
        QTest::newRow("nul in a value") << QByteArray(nulInValue, sizeof nulInValue - 1) << 200;
        QTest::newRow("negative length") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n") << 200;
        QTest::newRow("length beyond reason") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n") << 200;
        QTest::newRow("lengths that differ") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\nok") << 200;
        QTest::newRow("chunk size not hexadecimal") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n") << 200;
        QTest::newRow("chunk size beyond reason") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n") << 200;
        QTest::newRow("chunk longer than said") << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nok\r\n") << 200;
    }
    void refusesWhatIsNotHttpOrBreaksTheFraming()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, status);
        for (const HttpReplyParser &parser : {parsedWhole(reply, true), parsedByteByByte(reply, true)}) {
            QCOMPARE(parser.state(), HttpReplyParser::State::malformed);
            QCOMPARE(parser.status(), status);
        }
    }

    // A peer that never ends its head, or sends endless trailers, is cut off at the limit
    // instead of being buffered.
    void headsBeyondTheLimitAreRefused()
    {
        HttpReplyParser endlessLine;
        endlessLine.feed("HTTP/1.1 200 OK\r\nX: ");
        const QByteArray filler(4096, 'a');
        for (int i = 0; i < 32 && endlessLine.state() == HttpReplyParser::State::head; ++i)
            endlessLine.feed(filler);
        QCOMPARE(endlessLine.state(), HttpReplyParser::State::malformed);

        HttpReplyParser manyFields;
        manyFields.feed("HTTP/1.1 200 OK\r\n");
        for (int i = 0; i < 10000 && manyFields.state() == HttpReplyParser::State::head; ++i)
            manyFields.feed("X-Field: value\r\n");
        QCOMPARE(manyFields.state(), HttpReplyParser::State::malformed);

        HttpReplyParser endlessTrailer;
        endlessTrailer.feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n");
        for (int i = 0; i < 10000 && endlessTrailer.state() == HttpReplyParser::State::body; ++i)
            endlessTrailer.feed("X-Trailer: value\r\n");
        QCOMPARE(endlessTrailer.state(), HttpReplyParser::State::malformed);
    }

    // A body of any size is counted; only its beginning is kept.
    void largeBodiesAreCountedNotKept()
    {
        HttpReplyParser parser;
        parser.feed("HTTP/1.1 500 Internal Server Error\r\n\r\n");
        const QByteArray piece(100 * 1024, 'e');
        for (int i = 0; i < 30; ++i)
            parser.feed(piece);
        parser.connectionClosed();
        QVERIFY(parser.isComplete());
        QCOMPARE(parser.bodySize(), 30 * piece.size());
        QCOMPARE(parser.body().size(), HttpReplyParser::bodyKept);
    }

    // Once complete or refused, a reply takes nothing more.
    void nothingIsReadAfterTheEnd()
    {
        HttpReplyParser parser = parsedWhole("HTTP/1.1 204 No Content\r\n\r\n", false);
        parser.feed("HTTP/1.1 500 Oops\r\n\r\n");
        QCOMPARE(parser.status(), 204);
        QVERIFY(parser.isComplete());
    }
};

QTEST_GUILESS_MAIN(HttpReplyParserTest)
#include "tst_httpreplyparser.moc"
