// The whole service under load: worth most under the thread sanitizer.

#include <atomic>
#include <map>
#include <random>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "SSLFixture.h"

namespace {

using Clock = std::chrono::steady_clock;

// A key of 1024 bits that lives for one test run, in a file that a policy can name.
class FreshKey {
public:
    FreshKey() : m_Key(EVP_RSA_gen(1024)) {
        FILE* file = fopen(m_Path.c_str(), "w");
        PEM_write_PrivateKey(file, m_Key, nullptr, nullptr, 0, nullptr, nullptr);
        fclose(file);
    }
    ~FreshKey() {
        remove(m_Path.c_str());
        EVP_PKEY_free(m_Key);
    }
    FreshKey(const FreshKey&) = delete;
    FreshKey& operator=(const FreshKey&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string Encrypt(const std::string& secret) const {
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(m_Key, nullptr);
        std::string to(128, '\0');
        size_t length = to.size();
        EXPECT_EQ(EVP_PKEY_encrypt_init(context), 1);
        EXPECT_EQ(
            EVP_PKEY_encrypt(context, reinterpret_cast<unsigned char*>(to.data()), &length,
                             reinterpret_cast<const unsigned char*>(secret.data()), secret.size()),
            1);
        EVP_PKEY_CTX_free(context);
        return to;
    }

private:
    static std::string NewPath() {
        static int count = 0;
        return ::testing::TempDir() + "ssl-key-" + std::to_string(getpid()) + "-" +
               std::to_string(++count);
    }

    EVP_PKEY* m_Key;
    const std::string m_Path = NewPath();
};

class SSLThreadsTest : public SSLServiceTest {
protected:
    static constexpr int KEYS = 8;
    static constexpr int VARIANTS = 4;  // different secrets of a key

    SSLThreadsTest() {
        for (int key = 0; key < KEYS; ++key)
            for (int variant = 0; variant < VARIANTS; ++variant) {
                const std::string secret = Secret(key, variant);
                m_Encrypted[key][variant] = m_Keys[key].Encrypt(secret);
            }
        SetPolicy(KeysPolicy());
    }

    static std::string Secret(int key, int variant) {
        return "secret " + std::to_string(variant) + " of key " + std::to_string(key);
    }
    std::string KeysPolicy() const {
        std::string credentials, hosts;
        for (int key = 0; key < KEYS; ++key) {
            credentials += Pem(100 + key, m_Keys[key].Path());
            hosts += Host(key, 100 + key);
        }
        return Document(credentials, hosts);
    }
    // The request with that number, and the response that it must get.
    Request NumberedRequest(int number) const {
        return Request::Tls(number % KEYS, m_Encrypted[number % KEYS][number / KEYS % VARIANTS],
                            "number " + std::to_string(number) + ":");
    }
    std::string NumberedResponse(int number) const {
        return NumberedRequest(number).Response(Secret(number % KEYS, number / KEYS % VARIANTS));
    }
    static int NumberOf(const std::string& response) {
        return response.size() < 60 || response.compare(4, 7, "number ") != 0
                   ? -1
                   : std::stoi(response.substr(11));
    }

    FreshKey m_Keys[KEYS];
    std::string m_Encrypted[KEYS][VARIANTS];
};

// The driver's side: posts numbered requests as the exchange has room, and takes the answers.
TEST_F(SSLThreadsTest, EveryRequestIsAnsweredOnceWithItsOwnContext) {
    constexpr int REQUESTS = 10000;
    constexpr int AHEAD = 200;  // below what queue and exchange hold, so nothing is refused
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", 4 * AHEAD);
    Start();
    std::atomic<bool> done{false};
    std::thread policies([&] {
        // Loading keys is what costs under a sanitizer, so not for as long as the test may last.
        for (int change = 0; change < 40 && !done; ++change) {
            m_Dom.ConfigSetXml(KeysPolicy());
            Service().OnSecurityConfigurationChanged();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    std::vector<int> answers(REQUESTS);
    int posted = 0, answered = 0, failures = 0, wrong = 0, failed = 0;
    Clock::time_point last = Clock::now();
    while (answered < REQUESTS && Clock::now() - last < std::chrono::seconds(60)) {
        for (; posted < REQUESTS && posted - answered < AHEAD; ++posted) {
            if (posted % 500 == 250) {  // now and then the driver does not take an answer
                kdi_testing_fail_ssl_response(1);
                ++failures;
            }
            Post(NumberedRequest(posted));
        }
        const std::string response = NextResponse();
        const int number = NumberOf(response);
        if (number < 0 || number >= REQUESTS) {
            ++wrong;
            break;
        }
        ++answered;
        ++answers[static_cast<size_t>(number)];
        last = Clock::now();
        if (response == NumberedRequest(number).Response())
            ++failed;
        else if (response != NumberedResponse(number))
            ++wrong;
    }
    done = true;
    policies.join();
    EXPECT_EQ(answered, REQUESTS);
    EXPECT_EQ(wrong, 0);
    for (int number = 0; number < REQUESTS; ++number)
        ASSERT_EQ(answers[static_cast<size_t>(number)], 1) << "request " << number;
    // An answer that the driver did not take came a second time, as a failure. Failures that were
    // asked for while an earlier one was pending count once.
    EXPECT_GT(failed, 0);
    EXPECT_LE(failed, failures);
    EXPECT_EQ(TakeEvents(m_Dom).size(), static_cast<size_t>(failed));
    EXPECT_TRUE(Responses().empty());
}

TEST_F(SSLThreadsTest, WithTheQueueFullEachRequestStillGetsOneAnswer) {
    constexpr int REQUESTS = 1500;
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", 4);
    Start();
    std::map<int, int> answers;
    int refused = 0;
    const auto take = [&](const std::string& response) {
        const int number = NumberOf(response);
        ++answers[number];
        if (response == NumberedRequest(number).Response())
            ++refused;
        else
            EXPECT_EQ(response, NumberedResponse(number));
    };
    for (int posted = 0; posted < REQUESTS;) {
        const Request request = NumberedRequest(posted);
        if (kdi_testing_post_ssl_request(&request.header, request.data.data(),
                                         static_cast<unsigned int>(request.data.size())) == 0)
            ++posted;
        else
            std::this_thread::yield();
        for (const std::string& response : Responses())
            take(response);
    }
    while (answers.size() < REQUESTS) {
        const std::string response = NextResponse();
        ASSERT_FALSE(response.empty()) << answers.size() << " were answered";
        take(response);
    }
    for (int number = 0; number < REQUESTS; ++number)
        EXPECT_EQ(answers[number], 1);
    EXPECT_GT(refused, 0) << "the queue was never full";
    EXPECT_LT(refused, REQUESTS);
}

TEST_F(SSLThreadsTest, ConcurrencyOfSeveralReadersAnswersEachRequestOnce) {
    constexpr int REQUESTS = 800;
    Start();
    OSTREL::CSSLCertThread second(m_Dom);
    ASSERT_TRUE(second.start(50, true, 0));
    std::map<int, int> answers;
    for (int posted = 0; posted < REQUESTS; ++posted) {
        Post(NumberedRequest(posted));
        if (posted % 100 != 99) continue;
        for (int i = 0; i < 100; ++i) {
            const std::string response = NextResponse();
            EXPECT_EQ(response, NumberedResponse(NumberOf(response)));
            ++answers[NumberOf(response)];
        }
    }
    EXPECT_EQ(answers.size(), static_cast<size_t>(REQUESTS));
    Stop();
    second.join();
}

TEST_F(SSLThreadsTest, AServiceWithAFullQueueEndsWithinElevenSeconds) {
    m_Dom.Set("plg.ostrel.SSL.QueueSizeMax", 100000);
    ReadPolicy();
    Peer().SetMaxWorkers(4);
    for (int number = 0; number < 20000; ++number)
        Peer().Append(NumberedRequest(number).Item());
    Start();
    Post(NumberedRequest(1));  // starts the workers
    EXPECT_FALSE(NextResponse().empty());
    const Clock::time_point begin = Clock::now();
    Stop();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(11));
}

TEST_F(SSLThreadsTest, IdleWorkersEndWithTheService) {
    Start();
    for (int number = 0; number < 16; ++number)
        Post(NumberedRequest(number));
    for (int number = 0; number < 16; ++number)
        EXPECT_FALSE(NextResponse().empty());
    const Clock::time_point begin = Clock::now();
    Stop();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(11));
}

}  // namespace
