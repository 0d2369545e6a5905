// The service's thread and its pool of workers.

#include <algorithm>
#include <climits>

#include <wx/thread.h>

#include "SSLFixture.h"

namespace {

using OSTREL::CSSLCertThread;
using OSTREL::SSLCertThreadPeer;

class SSLPool : public SSLServiceTest {
protected:
    // Workers are alive as long as their queue is empty: nothing idles for minutes here.
    void ExpectRunning(uint32_t count) { EXPECT_EQ(Peer().RunningWorkers(), count); }
};

TEST_F(SSLPool, ByDefaultTwoWorkersForAProcessorAnd128ItemsForAWorker) {
    const auto processors = static_cast<uint32_t>(wxThread::GetCPUCount());
    EXPECT_EQ(Peer().CpuCount(), processors);
    EXPECT_EQ(Peer().MaxWorkers(), 2 * processors);
    EXPECT_EQ(Peer().QueueSizeMax(), 256 * processors);
}

TEST_F(SSLPool, NoThreadsForAProcessorGivesOneWorker) {
    m_Dom.Set("plg.ostrel.SSL.ThreadsPerCpu", 0);
    EXPECT_EQ(Peer().MaxWorkers(), 1u);
    EXPECT_EQ(Peer().QueueSizeMax(), 128u);
}

TEST_F(SSLPool, SettingsAreTakenAsTheyAreAndCutTo32Bits) {
    m_Dom.Set("plg.ostrel.SSL.ThreadsPerCpu", (5LL << 32) + 3);
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", (7LL << 32) + 9);
    EXPECT_EQ(Peer().MaxWorkers(), 3 * Peer().CpuCount());
    EXPECT_EQ(Peer().QueueSizeMax(), 9u);
}

TEST_F(SSLPool, TracesItsSettings) {
    TraceOn();
    m_Dom.Set("plg.ostrel.SSL.ThreadsPerCpu", 3);
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", 9);
    const std::string cpus = std::to_string(Peer().CpuCount());
    const std::string workers = std::to_string(3 * Peer().CpuCount());
    EXPECT_EQ(TraceMessages(), Texts{"CSSLCertThread::Settings Cpu=" + cpus +
                                     " TPC=3 MaxWorkers=" + workers + " QMax=9"});
}

TEST_F(SSLPool, AnEmptyQueueMakesTheSlotsAndNoWorker) {
    EXPECT_FALSE(Peer().HasSlots());
    Service().ManageWorkerThreads(0);
    EXPECT_TRUE(Peer().HasSlots());
    ExpectRunning(0);
}

TEST_F(SSLPool, OneItemStartsOneWorkerAndNineStartTwo) {
    Peer().SetMaxWorkers(4);
    Service().ManageWorkerThreads(1);
    ExpectRunning(1);
    Service().ManageWorkerThreads(8);
    ExpectRunning(1);
    Service().ManageWorkerThreads(9);
    ExpectRunning(2);
    Service().ManageWorkerThreads(0);
    ExpectRunning(2);  // the pool does not shrink here
}

TEST_F(SSLPool, NineItemsAtOnceStartTwoWorkers) {
    Peer().SetMaxWorkers(4);
    Service().ManageWorkerThreads(9);
    ExpectRunning(2);
    EXPECT_STREQ(Peer().Worker(0)->GetThreadName(), "CSSLCertThreadWorker0");
    EXPECT_STREQ(Peer().Worker(1)->GetThreadName(), "CSSLCertThreadWorker1");
}

TEST_F(SSLPool, ThePoolsSizeIsTheLimitHoweverLongTheQueue) {
    Peer().SetMaxWorkers(2);
    Service().ManageWorkerThreads(1000000);
    ExpectRunning(2);
}

TEST_F(SSLPool, AWorkerThatLeftIsReplacedInItsSlotByTheSameCall) {
    Peer().SetMaxWorkers(3);
    kdi_testing_fail_open(1);
    Service().ManageWorkerThreads(1);
    EXPECT_TRUE(Becomes([&] { return Peer().RunningWorkers() == 0; }));
    EXPECT_NE(Peer().Worker(0), nullptr) << "it keeps its slot";
    EXPECT_EQ(TakeLogLines(), Texts{"error: CSSLCertThreadWorker0 shutting down since kdi_open() "
                                    "failed: failure asked for by a test"});
    Service().ManageWorkerThreads(1);
    ExpectRunning(1);
    EXPECT_TRUE(Peer().Worker(0)->isRunning());
    EXPECT_EQ(Peer().Worker(1), nullptr);
}

TEST_F(SSLPool, WorkersGetTheProcessorsInTurn) {
    Peer().SetMaxWorkers(5 * Peer().CpuCount());
    Service().ManageWorkerThreads(8 * Peer().MaxWorkers());
    ExpectRunning(5 * Peer().CpuCount());
}

TEST_F(SSLPool, ShutdownStopsAllWorkersAndLeavesTheStopMark) {
    TraceOn();
    Peer().SetMaxWorkers(3);
    Service().ManageWorkerThreads(24);
    TraceMessages();
    Service().ShutdownWorkerThreads();
    EXPECT_FALSE(Peer().HasSlots());
    ASSERT_EQ(Peer().QueueLength(), 1u);
    EXPECT_EQ(Peer().Item(0), "");
    const Texts messages = TraceMessages();
    EXPECT_NE(
        std::find(messages.begin(), messages.end(), "Waiting for 3 worker threads to shut down."),
        messages.end());
    Service().ShutdownWorkerThreads();
    EXPECT_EQ(Peer().QueueLength(), 1u) << "without slots there is nothing to do";
}

TEST_F(SSLPool, AllWorkersLeaveAtTheStopMarkAndItemsAheadOfItAreServedFirst) {
    const Vector good = FindVector("tls-rsa-1024-tls12-aes128gcm#0");
    ReadPolicy();
    Peer().SetMaxWorkers(3);
    for (int i = 0; i < 20; ++i)
        Peer().Append(Request::Tls(3, good.encrypted, "item " + std::to_string(i)).Item());
    Peer().Append("");
    Service().ManageWorkerThreads(21);
    EXPECT_TRUE(Becomes([&] { return Peer().RunningWorkers() == 0; }));
    EXPECT_EQ(Peer().QueueLength(), 1u);
    EXPECT_EQ(Responses().size(), 20u);
}

TEST_F(SSLPool, TheServiceAnswersAndEndsWithTheAgent) {
    const Vector good = FindVector("made-rsa2048-good");
    Start();
    const Request request = Request::Tls(1, good.encrypted);
    Post(request);
    EXPECT_EQ(NextResponse(), request.Response(good.secret));
    const auto begin = std::chrono::steady_clock::now();
    Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(11));
}

TEST_F(SSLPool, LoadTestModeNeverOpensTheDriver) {
    m_Dom.SetText("velm.mode.loadtest", "true");
    kdi_testing_fail_open(1);
    Start();
    Service().join();
    EXPECT_FALSE(Peer().HasSlots());
    EXPECT_EQ(kdi_open(), nullptr) << "the failure that was asked for is still to come";
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SSLPool, AMissingDriverIsLoggedAndTheWaitForItEndsWithTheAgent) {
    kdi_testing_fail_open(1);
    Start();
    EXPECT_TRUE(Becomes([&] {
        const Texts lines = TakeLogLines();
        return lines == Texts{"error: kdi_open(): failure asked for by a test"};
    }));
    const auto begin = std::chrono::steady_clock::now();
    Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
}

TEST_F(SSLPool, AHandleThatFailsIsOpenedAnewInSilence) {
    const Vector good = FindVector("made-rsa2048-good");
    Start();
    const Request first = Request::Tls(1, good.encrypted, "first");
    Post(first);
    EXPECT_EQ(NextResponse(), first.Response(good.secret));
    kdi_wake_ssl_readers();  // the reader's handle serves no more
    const Request second = Request::Tls(1, good.encrypted, "second");
    Post(second);
    EXPECT_EQ(NextResponse(), second.Response(good.secret));
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SSLPool, AnEventIsRegisteredIfThereIsOneAndAFailureIsNotFatal) {
    const Vector good = FindVector("made-rsa2048-good");
    Peer().SetEvent(ULONG_MAX);  // no descriptor
    Start();
    const Request request = Request::Tls(1, good.encrypted);
    Post(request);
    EXPECT_EQ(NextResponse(), request.Response(good.secret));
    const Texts lines = TakeLogLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].find("error: kdi_register_event(): "), 0u);
}

class SSLConfiguration : public SSLServiceTest {
protected:
    OSTREL::CSSLHostConfiguration m_Host;
    OSTREL::CSSLCredential m_Credential;

    bool Get(int id) { return Service().GetSSLCredential(id, m_Host, m_Credential); }
};

TEST_F(SSLConfiguration, AHostConfigurationComesWithItsCredential) {
    ReadPolicy();
    EXPECT_TRUE(Get(2));
    EXPECT_EQ(m_Host.m_Id, 2);
    EXPECT_EQ(m_Credential.m_Id, 12);
    EXPECT_EQ(m_Credential.m_Identifier, CredentialPath("rsa4096.key.pem"));
}

TEST_F(SSLConfiguration, WithoutAMatchBothAreAtTheirDefaults) {
    ReadPolicy();
    EXPECT_TRUE(Get(2));
    EXPECT_FALSE(Get(77));
    EXPECT_EQ(m_Host.m_Id, 0);
    EXPECT_EQ(m_Host.m_Name, "");
    EXPECT_EQ(m_Credential.m_Identifier, "");
}

TEST_F(SSLConfiguration, AHostWithoutACredentialDoesNotEndTheSearch) {
    SetPolicy(Document(Pem(11, "a") + Pem(11, "b"),
                       Host(1, 98, "one") + Host(1, 11, "two") + Host(1, 11, "three")));
    ReadPolicy();
    EXPECT_TRUE(Get(1));
    EXPECT_EQ(m_Host.m_Name, "two");
    EXPECT_EQ(m_Credential.m_Identifier, "a") << "the first of that id";
}

TEST_F(SSLConfiguration, TheLastMatchingHostIsLeftBehindIfNoneHasACredential) {
    SetPolicy(Document("", Host(1, 98, "one") + Host(1, 99, "two") + Host(2, 98, "three")));
    ReadPolicy();
    EXPECT_FALSE(Get(1));
    EXPECT_EQ(m_Host.m_Name, "two");
}

TEST_F(SSLConfiguration, ANewPolicyReplacesTheOldOneWhole) {
    ReadPolicy();
    EXPECT_TRUE(Get(1));
    SetPolicy(Document(Pem(20, "x"), Host(9, 20)));
    EXPECT_TRUE(Get(1)) << "until the service is told";
    ReadPolicy();
    EXPECT_FALSE(Get(1));
    EXPECT_TRUE(Get(9));
}

}  // namespace
