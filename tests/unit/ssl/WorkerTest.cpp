// Workers: their keys, and when they leave.

#include "SSLFixture.h"

namespace {

using OSTREL::CRSAKey;
using OSTREL::SSLCertThreadPeer;

class SSLKeyCache : public SSLWorkerTest {
protected:
    SSLKeyCache() { VelmCore::SetTickCount(1000000); }
    bool HasKey(int id) { return SSLCertThreadPeer::HasKey(m_Worker, id); }
};

TEST_F(SSLKeyCache, AKeyIsLoadedOnce) {
    TraceOn();
    const CRSAKey* key = m_Worker.GetKey(1);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(m_Worker.GetKey(1), key);
    EXPECT_EQ(TraceMessages(),
              (Texts{"CSSLCertThreadWorker0: adding key for SSL configuration 1 to my private key "
                     "cache",
                     "CSSLCertThreadWorker0: found existing key for SSL configuration 1 in my "
                     "private key cache"}));
}

TEST_F(SSLKeyCache, AKeyUsedEvery50SecondsIsNeverCulledAndOneLeftFor70SecondsIs) {
    TraceOn();
    m_Worker.GetKey(1);
    m_Worker.GetKey(3);
    for (int i = 0; i < 4; ++i) {
        VelmCore::AdvanceTickCount(i < 3 ? 50000 : 20000);
        m_Worker.CullKeyCache();
        m_Worker.GetKey(1);
    }
    EXPECT_TRUE(HasKey(1));
    EXPECT_FALSE(HasKey(3));
    int removed = 0;
    for (const std::string& message : TraceMessages())
        removed += message ==
                   "CSSLCertThreadWorker0: removing key for SSL configuration 3 from my "
                   "private key cache due to inactivity";
    EXPECT_EQ(removed, 1);
}

TEST_F(SSLKeyCache, AKeyIsCulledWhenItsIdleTimeIsOverSixtySeconds) {
    m_Worker.GetKey(1);
    VelmCore::AdvanceTickCount(60000);
    m_Worker.CullKeyCache();
    EXPECT_TRUE(HasKey(1));
    VelmCore::AdvanceTickCount(1);
    m_Worker.CullKeyCache();
    EXPECT_FALSE(HasKey(1));
}

TEST_F(SSLKeyCache, AWrapOfTheClockDoesNoHarm) {
    VelmCore::SetTickCount(0xFFFFFFFF - 10000);
    m_Worker.GetKey(1);
    VelmCore::AdvanceTickCount(60000);
    m_Worker.CullKeyCache();
    EXPECT_TRUE(HasKey(1));
    VelmCore::AdvanceTickCount(1);
    m_Worker.CullKeyCache();
    EXPECT_FALSE(HasKey(1));
}

TEST_F(SSLKeyCache, AllKeysOverTheLimitGoInOnePass) {
    for (const int id : {1, 2, 3})
        m_Worker.GetKey(id);
    VelmCore::AdvanceTickCount(60001);
    m_Worker.CullKeyCache();
    EXPECT_EQ(SSLCertThreadPeer::KeyCount(m_Worker), 0u);
}

TEST_F(SSLKeyCache, AfterAPolicyChangeTheKeyIsLoadedAnew) {
    const Vector of2048 = FindVector("made-rsa2048-good");
    const Vector of4096 = FindVector("made-rsa4096-good");
    Request request = Request::Tls(1, of2048.encrypted);
    Process(request);
    EXPECT_EQ(Responses(), Texts{request.Response(of2048.secret)});
    SetPolicy(Document(Pem(11, CredentialPath("rsa4096.key.pem")), Host(1, 11)));
    ReadPolicy();
    m_Worker.InvalidateKeyCache();
    EXPECT_TRUE(HasKey(1)) << "its own thread drops the keys";
    request = Request::Tls(1, of4096.encrypted);
    Process(request);
    EXPECT_EQ(Responses(), Texts{request.Response(of4096.secret)});
    EXPECT_FALSE(SSLCertThreadPeer::IsCacheInvalid(m_Worker));
}

TEST_F(SSLKeyCache, ACullOfAnInvalidCacheClearsIt) {
    m_Worker.GetKey(1);
    m_Worker.InvalidateKeyCache();
    m_Worker.CullKeyCache();
    EXPECT_EQ(SSLCertThreadPeer::KeyCount(m_Worker), 0u);
    EXPECT_FALSE(SSLCertThreadPeer::IsCacheInvalid(m_Worker));
}

TEST_F(SSLKeyCache, ACredentialThatDoesNotLoadIsTriedAgainForEachRequest) {
    const std::string path = ::testing::TempDir() + "ssl-late-" + std::to_string(getpid());
    SetPolicy(Document(Pem(11, path), Host(1, 11)));
    ReadPolicy();
    EXPECT_EQ(m_Worker.GetKey(1), nullptr);
    std::ofstream(path) << CredentialBytes("rsa1024.key.pem");
    EXPECT_NE(m_Worker.GetKey(1), nullptr);
    remove(path.c_str());
    EXPECT_NE(m_Worker.GetKey(1), nullptr) << "it is in the cache now";
}

class SSLWorkerThread : public SSLServiceTest {
protected:
    SSLWorkerThread() {
        VelmCore::SetTickCount(0);
        ReadPolicy();
        Peer().SetMaxWorkers(1);
    }

    // Starts the worker with one request and waits until it has been answered.
    void Serve(int configuration) {
        const Request request(configuration, "");  // no secret, but the key is loaded
        Peer().Append(request.Item());
        Service().ManageWorkerThreads(1);
        Peer().WakeWorkers();
        EXPECT_EQ(NextResponse(), request.Response());
    }
    // Moves the clock while the worker waits for work, and wakes it until `condition` holds.
    template <typename Condition>
    bool AfterWaking(const Condition& condition) {
        return Becomes([&] {
            Peer().WakeWorkers();
            return condition();
        });
    }
    bool Traced(const std::string& message) {
        for (std::string& taken : TraceMessages())
            m_Traced.push_back(std::move(taken));
        return std::find(m_Traced.begin(), m_Traced.end(), message) != m_Traced.end();
    }

private:
    Texts m_Traced;
};

TEST_F(SSLWorkerThread, AKeyIdleForMoreThanAMinuteGoesWhileTheWorkerHasNoWork) {
    TraceOn();
    Serve(1);
    VelmCore::AdvanceTickCount(70000);
    EXPECT_TRUE(AfterWaking([&] {
        return Traced(
            "CSSLCertThreadWorker0: removing key for SSL configuration 1 from my private "
            "key cache due to inactivity");
    }));
    EXPECT_EQ(Peer().RunningWorkers(), 1u);
}

TEST_F(SSLWorkerThread, AnIdleWorkerLeavesAfterMoreThanFiveMinutes) {
    TraceOn();
    Serve(1);
    VelmCore::AdvanceTickCount(300000);
    // One look at the limit, which is not over yet: the cull says that it came by.
    EXPECT_TRUE(AfterWaking([&] {
        return Traced(
            "CSSLCertThreadWorker0: removing key for SSL configuration 1 from my private "
            "key cache due to inactivity");
    }));
    EXPECT_EQ(Peer().RunningWorkers(), 1u);
    VelmCore::AdvanceTickCount(1);
    EXPECT_TRUE(AfterWaking([&] { return Peer().RunningWorkers() == 0; }));
    EXPECT_TRUE(Traced("CSSLCertThreadWorker0: shutting down since we're idle"));
    EXPECT_TRUE(Traced("CSSLCertThreadWorker0::OnExit()"));
}

TEST_F(SSLWorkerThread, ARequestAfterTheWorkerHasLeftStartsANewOne) {
    Serve(1);
    VelmCore::AdvanceTickCount(300001);
    EXPECT_TRUE(AfterWaking([&] { return Peer().RunningWorkers() == 0; }));
    Serve(1);
    EXPECT_EQ(Peer().RunningWorkers(), 1u);
}

TEST_F(SSLWorkerThread, APolicyChangeReachesAWorkerThatWaits) {
    Serve(1);
    SetPolicy(Document("", ""));
    TraceOn();
    ReadPolicy();
    EXPECT_TRUE(Traced("CSSLCertThreadWorker0::InvalidateKeyCache()"));
    VelmCore::AdvanceTickCount(10001);
    EXPECT_TRUE(AfterWaking([&] { return Traced("CSSLCertThreadWorker0::ClearKeyCache()"); }));
}

TEST_F(SSLWorkerThread, AnItemWhoseSignalWasMissedIsServedAfterTheWaitOfTenSeconds) {
    Serve(1);
    const Request request(1, "", "missed");
    Peer().Append(request.Item());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(NextResponse(), request.Response());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(SSLWorkerThread, TracesItsWay) {
    TraceOn();
    Peer().Append(Request(1, "").Item());
    Peer().Append("");
    Service().ManageWorkerThreads(2);
    EXPECT_TRUE(Becomes([&] { return Peer().RunningWorkers() == 0; }));
    Texts own;
    for (const std::string& message : TraceMessages())
        if (message.find("CSSLCertThreadWorker0") == 0) own.push_back(message);
    EXPECT_EQ(own,
              (Texts{"CSSLCertThreadWorker0::OnRun()",
                     "CSSLCertThreadWorker0: pulled an item off the work queue.",
                     "CSSLCertThreadWorker0: adding key for SSL configuration 1 to my private "
                     "key cache",
                     "CSSLCertThreadWorker0: shutting down.", "CSSLCertThreadWorker0::OnExit()",
                     "CSSLCertThreadWorker0::ClearKeyCache()"}));
}

}  // namespace
