// The presenter that the documentation gives as an example of a toolkit's one function, at work.
#include "PresenterExample.h"

#include <SSHSession/Platform.h>
#include <SSHSession/SSHSessionPasswordPanel.h>

#include <gtest/gtest.h>

#include <array>
#include <new>
#include <sstream>
#include <tuple>

TEST(AlertPresenter, OneFunctionIsAllThatAToolkitNeeds) {
    const auto presenter = std::make_shared<StreamPresenter>();
    SSHPlatform::install(nullptr, presenter);
    SSHPlatform::Alert choice;
    choice.buttons = {{"Add"}, {"Keep"}, {"Cancel"}};
    for (const auto &[typed, text, button] :
         std::vector<std::tuple<std::string, std::string, int>>{{"sesame\n", "sesame", 0},
                                                                {"Keep\n", "Keep", 1001},
                                                                {"\n", "none", 0},
                                                                {"", "none", 0}}) {
        std::istringstream in(typed + typed + typed);
        std::ostringstream out;
        auto *const realIn = std::cin.rdbuf(in.rdbuf());
        auto *const realOut = std::cout.rdbuf(out.rdbuf());
        std::cin.clear();
        SSHSessionPasswordPanel panel;
        EXPECT_EQ(panel.passwordForSSHKey("shop").value_or("none"), text);
        EXPECT_EQ(panel.responseToKeyboardPrompt("Code?").value_or("none"), text);
        EXPECT_EQ(static_cast<int>(presenter->runModal(choice)), button);
        std::cout.rdbuf(realOut);
        std::cin.rdbuf(realIn);
        EXPECT_EQ(out.str(),
                  "Enter your password for the SSH key \"shop\".\nThis SSH key is "
                  "password-protected.\n[OK] [Cancel] Authenticate SSH using "
                  "keybpard-interactive.\nCode?\n[OK] [Cancel] \n\n[Add] [Keep] [Cancel] ");
    }
    SSHPlatform::install(nullptr, nullptr);

    const auto nib = presenter->loadNib("SSHPasswordAlertAccessoryView");
    EXPECT_EQ(choice.plainTextField(), nullptr);
    for (const auto &[name, isSecret] :
         {std::pair("alertAccessoryView", true), std::pair("alertResponseAccessoryView", false)}) {
        choice.accessoryView = nib->view(name);
        EXPECT_EQ(choice.plainTextField()->isSecret(), isSecret);
    }
    EXPECT_EQ(presenter->loadNib("Another"), nullptr);

    using Field = SSHPlatform::PlainTextField;
    alignas(Field) std::array<char, sizeof(Field)> memory{};
    auto *const field = new (memory.data()) Field(true);
    field->setStringValue("sesame");
    field->~Field();
    EXPECT_EQ(std::string_view(memory.data(), memory.size()).find("sesame"), std::string::npos);
}
