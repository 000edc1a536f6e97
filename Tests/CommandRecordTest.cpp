#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHEscapeString.h>

#include "Tests/Support/Process.h"

#include <gtest/gtest.h>

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
    std::string released;
    const auto forget = [&](char name) {
        return [&, name](const auto *value) {
            released += name;
            delete value;
        };
    };
    const auto string = [&](char name) { return SSHStringRef(new std::string, forget(name)); };
    const auto data = [&](char name) {
        return SSHDataRef(new SSHPlatform::ByteBuffer, forget(name));
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
        EXPECT_EQ(released, "0");
        const SSHDataRef same = command.stdinData();
        EXPECT_EQ(command.stdinData().get(), same.get());
    }
    EXPECT_EQ(released, "0123456");
}
