// Agents that are not what they should be, and signals in the middle of a good one's work.
#include "Tests/Support/SessionTest.h"
#include "Tests/Support/Wrapped.h"

#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <sys/time.h>

#include <csignal>
#include <future>
#include <thread>

using asio::local::stream_protocol;
using testing::HasSubstr;

namespace {

std::string field(const std::string &bytes) {
    std::string length(4, '\0');
    for (std::size_t i = 0; i < 4; ++i)
        length[i] = static_cast<char>(bytes.size() >> (24 - 8 * i));
    return length + bytes;
}

// Listens where SSH_AUTH_SOCK says, and answers each request by the next of its answers. After the
// last one it hangs up, or says nothing until it ends.
class OddAgent {
  public:
    OddAgent(const std::string &path, std::vector<std::string> answers, bool hangsUp)
        : mAcceptor(mContext, stream_protocol::endpoint(path)) {
        ::setenv("SSH_AUTH_SOCK", path.c_str(), 1);
        mThread = std::thread([this, answers = std::move(answers), hangsUp] {
            asio::error_code ended;
            mAcceptor.accept(ended).close(); // the probe
            stream_protocol::socket client = mAcceptor.accept(ended);
            for (const std::string &answer : answers) {
                std::string request(4, '\0');
                asio::read(client, asio::buffer(request), ended);
                request.resize(static_cast<unsigned char>(request[3]) +
                               256U * static_cast<unsigned char>(request[2]));
                asio::read(client, asio::buffer(request), ended);
                asio::write(client, asio::buffer(answer), ended);
            }
            if (hangsUp)
                client.close();
            mIsDone = true;
            mMayEnd.get_future().wait();
        });
    }
    OddAgent(const OddAgent &) = delete;
    OddAgent &operator=(const OddAgent &) = delete;
    ~OddAgent() {
        mMayEnd.set_value();
        mThread.join();
    }
    bool isDone() const { return mIsDone; }

  private:
    asio::io_context mContext;
    stream_protocol::acceptor mAcceptor;
    std::atomic<bool> mIsDone = false;
    std::promise<void> mMayEnd;
    std::thread mThread;
};

class AgentTest : public SessionTest {
  protected:
    std::string socketPath() { return home.directory.path("agent" + std::to_string(++mCount)); }

    // What the agent's stage alone reports.
    std::string stage() {
        error = nullptr;
        const auto session = makeSession(server().port());
        EXPECT_FALSE(session->_authenticateWithAgent(*session->handshaken(), &error));
        session->stop();
        return summary(error);
    }

    // The agent's answer to the question which keys it has: this one.
    std::string identities() {
        const std::string line = publicKey(key());
        const std::string blob = require({"base64", "-d"}, line.substr(line.find(' ') + 1));
        return field('\x0c' + std::string("\0\0\0\1", 4) + field(blob) + field("comment"));
    }

  private:
    int mCount = 0;
};

} // namespace

TEST_F(AgentTest, AnAgentThatGoesAwayIsAnError) {
    const std::string stale = socketPath();
    {
        asio::io_context context;
        const stream_protocol::acceptor gone(context, stream_protocol::endpoint(stale));
    }
    ::setenv("SSH_AUTH_SOCK", stale.c_str(), 1);
    EXPECT_THAT(stage(), HasSubstr("-42 | An error occurred in libssh2_agent_connect. (-42) | "
                                   "Error -42. failed connecting with agent"));
    EXPECT_EQ(wrapped().badCloses, 0) << "a descriptor was closed that others may have opened";
    {
        const OddAgent atOnce(socketPath(), {}, true);
        EXPECT_THAT(stage(), HasSubstr("An error occurred in libssh2_agent_list_identities."));
    }
    const std::string keys = identities();
    {
        const OddAgent inTheSignature(socketPath(), {keys, field("\x0eonly a part").substr(0, 9)},
                                      true);
        EXPECT_THAT(stage(), HasSubstr("SSH could not authenticate using ssh-agent."));
    }
    const OddAgent silent(socketPath(), {keys}, false);
    const auto session = makeSession(server().port());
    auto start = std::async(std::launch::async, [&] { return session->start(&error); });
    EXPECT_TRUE(eventually([&] { return silent.isDone(); }));
    session->stop();
    EXPECT_FALSE(start.get());
    EXPECT_THAT(summary(error), HasSubstr("The session was stopped while it was connecting."));
}

TEST_F(AgentTest, SignalsDoNotDisturbTheExchange) {
    const SshAgent agent({key()});
    struct sigaction ignored {};
    ignored.sa_handler = [](int) {}; // without SA_RESTART
    struct sigaction before {};
    ::sigaction(SIGALRM, &ignored, &before);
    const itimerval often = {{0, 1000}, {0, 1000}};
    server();
    ::setitimer(ITIMER_REAL, &often, nullptr);
    for (int round = 0; round < 5; ++round) {
        const auto session = makeSession(server().port());
        EXPECT_TRUE(session->start(&error) && session->connection()->agent()) << summary(error);
        EXPECT_EQ(resultOf(*session, "echo out"), "0 (null) | out\n | ");
        session->stop();
    }
    const itimerval never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
}
