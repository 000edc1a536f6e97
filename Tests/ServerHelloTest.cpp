// What a server says in the clear, and what two sides have in common.
#include "Session/ServerHello.h"
#include "Session/Negotiation.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <array>

using namespace SSHEngine;
using namespace std::string_literals;

namespace {

std::string number(std::size_t value) {
    return {0, 0, static_cast<char>(value >> 8U), static_cast<char>(value)};
}

std::string packet(const std::string &payload) {
    return number(payload.size() + 5) + '\4' + payload + "\0\0\0\0"s;
}

std::string offer(const std::array<std::string, 8> &lists) {
    std::string payload = '\x14' + std::string(16, 'c');
    for (const std::string &list : lists)
        payload += number(list.size()) + list;
    return packet(payload + number(0) + number(0) + "\0\0\0\0\0"s);
}

std::string summary(const ServerHello &hello) {
    const SSHServerFacts &facts = hello.facts();
    std::string text =
        fmt::format("{}{}|{}|", facts.hasSpoken ? "" : "silent", facts.linesBefore, facts.version);
    if (facts.offer)
        for (const auto *names : {&facts.offer->keyExchange, &facts.offer->hostKey,
                                  &facts.offer->cipherToClient, &facts.offer->compressionToClient})
            text += fmt::format("{};", fmt::join(*names, "+"));
    return text + (hello.isOver() ? "." : "");
}

} // namespace

TEST(ServerHelloTest, WhatIsSaidInTheClearIsUnderstoodInAnyPieces) {
    const std::string whole = offer({"k1,k2", "h", "c1", "c2", "m1", "m2", "none", "zlib,none"});
    const std::string ignored = packet("\2anything");
    const std::string longLine(2000, 'x');
    for (const auto &[said, expected] : std::vector<std::pair<std::string, std::string>>{
             {"", "silent||"},
             {"SSH-2.0-a b\r\n" + ignored + whole, "|SSH-2.0-a b|k1+k2;h;c2;zlib+none;."},
             {"Hi\r\nyou\nSSH-2.0-x\n" + whole + whole,
              "Hi\r\nyou\n|SSH-2.0-x|k1+k2;h;c2;zlib+none;."},
             {"220 mail", "220 mail||"},
             {"SSH-2.0-cut", "SSH-2.0-cut||"},
             {longLine + "\nSSH-2.0-x\r\n", longLine.substr(0, 1024) + "|SSH-2.0-x|"},
             {"SSH-2.0-x\n" + packet("\1") + whole, "|SSH-2.0-x|."},
             {"SSH-2.0-x\n" + packet("\x14short"), "|SSH-2.0-x|."},
             {"SSH-2.0-x\n\xff\xff\xff\xff", "|SSH-2.0-x|."},
             {"SSH-2.0-x\n" + number(1) + "\0"s, "|SSH-2.0-x|."},
             {"SSH-2.0-x\n" + whole.substr(0, 50), "|SSH-2.0-x|"},
             {std::string(70000, '\n') + whole, std::string(1024, '\n') + "||."},
         })
        for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, said.size() + 1}) {
            ServerHello hello;
            for (std::size_t at = 0; at < said.size(); at += piece) {
                const std::string before = summary(hello);
                const bool hasChanged = hello.take(std::string_view(said).substr(at, piece));
                EXPECT_LE(summary(hello) != before && !hello.isOver(), hasChanged);
            }
            EXPECT_EQ(summary(hello), expected) << piece;
        }
}

TEST(ServerHelloTest, WhatIsMissingIsNamed) {
    const SSHAlgorithms server = {{"k"},    {"h"},      {"c", "aes128-gcm@openssh.com"},
                                  {"c"},    {"m", "n"}, {"m"},
                                  {"none"}, {"none"}};
    using enum SSHErrorCause;
    using Change = void (*)(SSHAlgorithms &);
    for (const auto &[change, expected] : std::vector<std::pair<Change, SSHErrorCause>>{
             {[](SSHAlgorithms &) {}, Unknown},
             {[](SSHAlgorithms &its) { its.keyExchange = {"x"}; }, NoCommonKeyExchange},
             {[](SSHAlgorithms &its) { its.hostKey = {"x"}; }, NoCommonHostKey},
             {[](SSHAlgorithms &its) { its.cipherToClient = {"x"}; }, NoCommonCipher},
             {[](SSHAlgorithms &its) { its.macToServer = {"x"}; }, NoCommonMAC},
             {[](SSHAlgorithms &its) {
                  its.cipherToServer = {"aes128-gcm@openssh.com", "c"};
                  its.macToServer = {"x"};
              },
              Unknown},
             {[](SSHAlgorithms &its) { its.compressionToServer = {"x"}; }, NoCommonCompression},
         }) {
        SSHAlgorithms client = server;
        change(client);
        EXPECT_EQ(nothingInCommon(client, server).value_or(Unknown), expected);
    }
}
