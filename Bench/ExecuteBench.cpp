// What one command costs on a warm session over loopback, the server's own fork included, beside
// the same loop on bare libssh2; and how fast data goes through.
#include "Bench/BareCommand.h"
#include "Tests/Support/Relay.h"
#include "Tests/Support/Sshd.h"

#include <SSHSession/SSHSession.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

// The mean that the framework reports hides the tail, so the quantiles are counted here.
class Latencies {
  public:
    template <typename Work>
    void measure(Work work) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        mMilliseconds.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                .count());
    }

    void report(benchmark::State &state) {
        std::sort(mMilliseconds.begin(), mMilliseconds.end());
        state.counters["p50_ms"] = quantile(0.5);
        state.counters["p99_ms"] = quantile(0.99);
    }

  private:
    double quantile(double part) const {
        return mMilliseconds[static_cast<std::size_t>(
            part * static_cast<double>(mMilliseconds.size() - 1))];
    }

    std::vector<double> mMilliseconds;
};

struct Ground {
    Ground() {
        makeKey(key, "ed25519");
        sshd.authorize(key);
        std::ofstream(home.knownHosts()) << "127.0.0.1 " << sshd.hostKey() << '\n';
    }

    TemporaryHome home;
    const std::string key = home.directory.path("client");
    Sshd sshd;
};

Ground *ground = nullptr;

std::shared_ptr<SSHSession> connected(unsigned short port = ground->sshd.port()) {
    auto session =
        SSHSession::sessionWithHost("127.0.0.1", port, currentUser(), std::nullopt, ground->key);
    SSHErrorRef error;
    if (!session->start(&error))
        throw std::runtime_error(error ? error->text() : "refused");
    return session;
}

void require(bool succeeded) {
    if (!succeeded)
        throw std::runtime_error("a command failed");
}

bool run(SSHSession &session, const std::string &text, const SSHDataRef &input = nullptr) {
    auto command = std::make_shared<SSHCommand>();
    command->setCommand(text);
    command->setStdinData(input);
    return session.execute(command, nullptr) && command->exitStatus() == 0;
}

void executeTrue(benchmark::State &state) {
    const auto session = connected();
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state)
        latencies.measure([&] { require(run(*session, "true")); });
    latencies.report(state);
    session->stop();
}

void executeWithInput(benchmark::State &state) {
    const auto session = connected();
    const auto input = std::make_shared<const SSHPlatform::ByteBuffer>("input");
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state)
        latencies.measure([&] { require(run(*session, "cat", input)); });
    latencies.report(state);
    session->stop();
}

void bareTrue(benchmark::State &state) {
    BareConnection connection(ground->sshd.port(), currentUser(), ground->key);
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state)
        latencies.measure([&] { require(connection.run("true") == 0); });
    latencies.report(state);
}

void startAndStop(benchmark::State &state) {
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state)
        latencies.measure([] { connected()->stop(); });
    latencies.report(state);
}

constexpr std::int64_t transferSize = 100 << 20;

void receive100MiB(benchmark::State &state) {
    const auto session = connected();
    for ([[maybe_unused]] auto _ : state)
        require(run(*session, "head -c " + std::to_string(transferSize) + " /dev/urandom"));
    state.SetBytesProcessed(state.iterations() * transferSize);
    session->stop();
}

void send100MiB(benchmark::State &state) {
    const auto session = connected();
    const auto input =
        std::make_shared<const SSHPlatform::ByteBuffer>(std::string(transferSize, 'x'));
    for ([[maybe_unused]] auto _ : state)
        require(run(*session, "cat > /dev/null", input));
    state.SetBytesProcessed(state.iterations() * transferSize);
    session->stop();
}

// A megabyte there and back on a link of 4 Mbit/s each way, with a network's small segments. The
// column of processor time is what counts.
void throughSlowLink(benchmark::State &state) {
    const Relay relay(ground->sshd.port(), {.bytesPerSecond = 500'000});
    const auto session = connected(relay.port());
    const std::size_t size = 1 << 20;
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    std::string noise(size, '\0');
    for (char &byte : noise)
        byte = static_cast<char>(random());
    const auto input = std::make_shared<const SSHPlatform::ByteBuffer>(noise);
    for ([[maybe_unused]] auto _ : state)
        require(run(*session, "cat", input));
    session->stop();
}

} // namespace

BENCHMARK(executeTrue)->Iterations(1000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(executeWithInput)->Iterations(200)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(bareTrue)->Iterations(1000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(startAndStop)->Iterations(100)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(receive100MiB)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(send100MiB)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(throughSlowLink)->Iterations(2)->UseRealTime()->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    Ground throwaway;
    ground = &throwaway;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    ground = nullptr;
}
