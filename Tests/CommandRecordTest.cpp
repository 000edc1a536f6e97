#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHEscapeString.h>

#include "Tests/Support/Process.h"

#include <gtest/gtest.h>

#include <thread>

TEST(SSHEscapeString, QuotesExactly) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"abc", "'abc'"},
        {"", ""},
        {"it's", R"('it'"'"'s')"},
        {"echo hi!", R"('echo hi'\!)"},
        {"!!", R"(\!\!)"},
        {"!a", R"(\!'a')"},
        {"'", R"("'")"},
        {"''x", R"("''"'x')"},
        {"a'!b", R"('a'"'"\!'b')"},
        {"'!'", R"("'"\!"'")"},
        {R"($HOME "x")", R"('$HOME "x"')"},
        {"é", "'é'"},
        {std::string("cut\0off", 7), "'cut'"},
    };
    for (const auto &[input, output] : cases)
        EXPECT_EQ(SSHEscapeString(input), output) << input;
}

TEST(SSHEscapeString, IsReadBackByAShell) {
    std::string every;
    for (int byte = 1; byte < 256; ++byte)
        every += static_cast<char>(byte);
    for (const std::string &input :
         {every, std::string("'!'!''!!x'"), std::string("$(reboot) `id` \\ \n\t*? \"$HOME\""),
          std::string("-n ; & | <>"), std::string(100000, '\'')})
        EXPECT_EQ(runProcess({"/bin/sh"}, "printf %s " + SSHEscapeString(input)).output, input);
}

TEST(SSHCommand, SharesWhatItIsGivenAndForgetsItInOrder) {
    std::vector<char> released;
    const auto string = [&](char name) {
        return SSHStringRef(new std::string(1, name), [&released](const std::string *value) {
            released.push_back(value->front());
            delete value;
        });
    };
    const auto data = [&](char name) {
        return SSHDataRef(new SSHPlatform::ByteBuffer({&name, 1}), [&released](const auto *value) {
            released.push_back(value->view().front());
            delete value;
        });
    };
    {
        SSHCommand command;
        EXPECT_FALSE(command.command() || command.adminPassword() || command.stdinData() ||
                     command.stdoutData() || command.stderrData() || command.exitSignal());
        EXPECT_EQ(command.exitStatus(), 0);
        command.setExitSignal(string('6'));
        command.setStderrData(data('5'));
        command.setStdoutData(data('4'));
        command.setStdinData(data('3'));
        command.setAdminPassword(string('2'));
        command.setCommand(string('0'));
        command.setCommand(string('1'));
        EXPECT_EQ(released, std::vector<char>{'0'});
        const SSHDataRef same = command.stdinData();
        EXPECT_EQ(command.stdinData().get(), same.get());
    }
    EXPECT_EQ(released, (std::vector<char>{'0', '1', '2', '3', '4', '5', '6'}));
}

// The thread sanitizer, or the allocator, complains when a getter sees a half-replaced value.
TEST(SSHCommand, PropertiesAreAtomic) {
    SSHCommand command;
    command.setCommand("start");
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i)
            command.setCommand(std::string(static_cast<std::size_t>(i % 60), 'x'));
    });
    std::size_t total = 0;
    for (int i = 0; i < 20000; ++i)
        total += command.command()->size();
    writer.join();
    EXPECT_GT(total, 0U);
    EXPECT_EQ(command.command()->size(), 19999U % 60);
}
