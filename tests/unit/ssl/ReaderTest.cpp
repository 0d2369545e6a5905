// What the reader makes of one request of the driver.

#include <climits>

#include "SSLFixture.h"

namespace {

class SSLReader : public SSLServiceTest {
protected:
    SSLReader() : m_Handle(kdi_open()) {
        Peer().SetMaxWorkers(0);  // nobody empties the queue
    }
    ~SSLReader() override { kdi_close(m_Handle); }

    bool Process(const Request& request, unsigned int dataLen) {
        ssl_request_st header = request.header;
        std::string data = request.data;
        return Service().ProcessDriverData(m_Handle, &header,
                                           reinterpret_cast<unsigned char*>(data.data()), dataLen);
    }
    bool Process(const Request& request) {
        return Process(request, static_cast<unsigned int>(request.data.size()));
    }

    const kdi_handle_t m_Handle;
};

TEST_F(SSLReader, AnItemIsTheHeaderWithTheDataBehindIt) {
    const Request request(1, "the data", "the context");
    EXPECT_TRUE(Process(request));
    ASSERT_EQ(Peer().QueueLength(), 1u);
    EXPECT_EQ(Peer().Item(0), request.Item());
    EXPECT_TRUE(Responses().empty());
}

TEST_F(SSLReader, MoreDataThanTheSecretIsKept) {
    Request request(1, "secret", "the context");
    request.data += " and more";
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Peer().Item(0), request.Item());
}

TEST_F(SSLReader, ARequestWithoutDataIsAnItemAndNoStopMark) {
    EXPECT_TRUE(Process(Request(1, "")));
    EXPECT_EQ(Peer().Item(0).size(), 72u);
}

TEST_F(SSLReader, LessDataThanTheSecretGetsAWarningAndNoAnswer) {
    EXPECT_TRUE(Process(Request(1, "the data"), 7));
    EXPECT_EQ(Peer().QueueLength(), 0u);
    EXPECT_TRUE(Responses().empty());
    EXPECT_EQ(TakeLogLines(), Texts{"warning: SSL decryption request contained bad data: "
                                    "preMasterLen=8, dataLen=7"});
}

TEST_F(SSLReader, AClaimOfMostOfTheAddressSpaceIsComparedUnsigned) {
    Request request(1, "the data");
    request.header.preMasterLen = UINT_MAX;
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Peer().QueueLength(), 0u);
    EXPECT_EQ(TakeLogLines(), Texts{"warning: SSL decryption request contained bad data: "
                                    "preMasterLen=-1, dataLen=8"});
}

TEST_F(SSLReader, AQueueOfTheMostItemsRefusesTheNextRequest) {
    Peer().SetQueueSizeMax(3);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(Process(Request(1, "data")));
    EXPECT_TRUE(Responses().empty());
    const Request refused(1, "data", "refused");
    EXPECT_TRUE(Process(refused));
    EXPECT_EQ(Peer().QueueLength(), 3u);
    EXPECT_EQ(Responses(), Texts{refused.Response()});
    EXPECT_EQ(TakeLogLines(), Texts{"error: CSSLCertThread::ProcessDriverData() - SSL decryption "
                                    "queue size exceeded."});
}

TEST_F(SSLReader, AQueueOfNoItemsRefusesEverything) {
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", 0);
    const Request refused(1, "data", "refused");
    EXPECT_TRUE(Process(refused));
    // The setting was read when the service was made.
    EXPECT_EQ(Peer().QueueLength(), 1u);
    OSTREL::CSSLCertThread other(m_Dom);
    ssl_request_st header = refused.header;
    unsigned char data[] = "data";
    EXPECT_TRUE(other.ProcessDriverData(m_Handle, &header, data, 4));
    EXPECT_EQ(OSTREL::SSLCertThreadPeer{other}.QueueLength(), 0u);
    EXPECT_EQ(Responses(), Texts{refused.Response()});
}

TEST_F(SSLReader, ARefusalThatTheDriverDoesNotTakeIsNotTriedAgain) {
    Peer().SetQueueSizeMax(0);
    kdi_testing_fail_ssl_response(1);
    EXPECT_TRUE(Process(Request(1, "data")));
    EXPECT_TRUE(Responses().empty());
    EXPECT_EQ(TakeEvents(m_Dom).size(), 1u);
    EXPECT_EQ(TakeLogLines().size(), 2u);
}

TEST_F(SSLReader, DataThatNoItemMayHoldIsRefused) {
    const Request largest(1, std::string(65464, 'x'), "largest");
    EXPECT_TRUE(Process(largest));
    EXPECT_EQ(Peer().Item(0).size(), 65536u);
    EXPECT_TRUE(Responses().empty());
    const Request larger(1, std::string(65465, 'x'), "larger");
    EXPECT_TRUE(Process(larger));
    EXPECT_EQ(Peer().QueueLength(), 1u);
    EXPECT_EQ(Responses(), Texts{larger.Response()});
    EXPECT_EQ(TakeLogLines(), Texts{"error: CSSLCertThread::ProcessDriverData() - SSL decryption "
                                    "request too large: dataLen=65465"});
}

TEST_F(SSLReader, ReadingEndsWithTheAgent) {
    m_Dom.RequestExit();
    EXPECT_FALSE(Process(Request(1, "data")));
    EXPECT_FALSE(Process(Request(1, "data"), 1)) << "bad data";
    Peer().SetQueueSizeMax(0);
    EXPECT_FALSE(Process(Request(1, "data"))) << "refused";
}

TEST_F(SSLReader, TracesTheQueueOnlyIfTraceWasOnWhenTheServiceWasMade) {
    TraceOn();
    EXPECT_TRUE(Process(Request(1, "data")));
    EXPECT_EQ(TraceMessages(),
              (Texts{"ProcessDriverData(dataLen=4)", "CSSLCertThread::Managing runningWorkers=0"}));
    OSTREL::CSSLCertThread traced(m_Dom);
    OSTREL::SSLCertThreadPeer peer{traced};
    peer.SetMaxWorkers(0);
    peer.SetQueueSizeMax(1);
    ssl_request_st header = Request(1, "data").header;
    unsigned char data[] = "data";
    TraceMessages();
    EXPECT_TRUE(traced.ProcessDriverData(m_Handle, &header, data, 4));
    EXPECT_EQ(TraceMessages(),
              (Texts{"ProcessDriverData(dataLen=4)", "CSSLCertThread::Managing runningWorkers=0",
                     "Added 1 items to the queue.  Queue size is currently 1"}));
    EXPECT_TRUE(traced.ProcessDriverData(m_Handle, &header, data, 4));
    EXPECT_EQ(TraceMessages(), (Texts{"ProcessDriverData(dataLen=4)",
                                      "SendSSLCertResponse() - sending 60 byte response to driver",
                                      "SendSSLCertResponse() - driver responded with rc=0",
                                      "Added 0 items to the queue.  Queue size is currently 1"}));
}

}  // namespace
