// This library, with the recommended options, or with none when the first word is --plain.
#include "Bench/Peers/Peer.h"

#include <SSHSession/SSHSession.h>

#include <array>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

SSHSessionOptions options = SSHSessionOptions::recommended();

class Ours : public Peer {
  public:
    explicit Ours(const LogIn &logIn)
        : mSession(SSHSession::sessionWithHost("127.0.0.1", logIn.port, logIn.user, std::nullopt,
                                               logIn.keyFile, options)) {}
    ~Ours() override { mSession->stop(); }

    std::string version() const override { return BENCH_VERSION; }

    void connect() override {
        SSHErrorRef error;
        if (!mSession->start(&error))
            throw std::runtime_error(error ? error->text() : "the host key was refused");
    }

    void disconnect() override { mSession->stop(); }

    std::size_t run(const std::string &command, std::string_view input) override {
        SSHCommand &record = make(command);
        if (!input.empty())
            record.setStdinData(input);
        execute();
        return record.stdoutData()->size();
    }

    void stream(const std::string &command, const Sink &sink) override {
        make(command).setOutputSink([&](SSHCommandStream stream, std::string_view piece) {
            if (stream == SSHCommandStream::Output)
                sink(piece);
            return piece.size();
        });
        execute();
    }

    // In one place from the beginning, so that nothing has to be copied.
    void load(const std::string &path) override {
        const auto content = std::make_shared<SSHPlatform::ByteBuffer>();
        std::ifstream file(path);
        std::array<char, 65536> piece{};
        while (file.read(piece.data(), piece.size()), file.gcount() > 0)
            content->append({piece.data(), static_cast<std::size_t>(file.gcount())});
        mLoaded = content;
    }

    void runLoaded(const std::string &command) override {
        make(command).setStdinData(mLoaded);
        execute();
    }

    void feed(const std::string &command, int descriptor) override {
        make(command).setStdinDescriptor(descriptor);
        execute();
    }

    void sudoTrue(const std::string &password) override {
        make("true").setAdminPassword(password);
        execute();
    }

  private:
    SSHCommand &make(const std::string &command) {
        mCommand = std::make_shared<SSHCommand>();
        mCommand->setCommand(command);
        return *mCommand;
    }

    void execute() {
        SSHErrorRef error;
        if (!mSession->execute(mCommand, &error))
            throw std::runtime_error(error->text());
        if (mCommand->exitStatus() != 0)
            throw std::runtime_error("exit status " + std::to_string(mCommand->exitStatus()));
    }

    const std::shared_ptr<SSHSession> mSession;
    std::shared_ptr<SSHCommand> mCommand;
    SSHDataRef mLoaded;
};

} // namespace

int main(int count, char **words) {
    if (count > 1 && std::string_view(words[1]) == "--plain") {
        options = {};
        --count;
        ++words;
    }
    return measure(count, words, [](const LogIn &logIn) -> std::unique_ptr<Peer> {
        return std::make_unique<Ours>(logIn);
    });
}
