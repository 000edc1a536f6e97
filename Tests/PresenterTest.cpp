// The presenter that the documentation gives as an example of a toolkit's one function, at work.
#include "PresenterExample.h"

#include <SSHSession/Platform.h>
#include <SSHSession/SSHSessionPasswordPanel.h>

#include <gtest/gtest.h>

#include <array>
#include <new>
#include <sstream>

using namespace SSHPlatform;

TEST(AlertPresenter, OneFunctionIsAllThatAToolkitNeeds) {
    const auto presenter = std::make_shared<StreamPresenter>();
    install(nullptr, presenter);
    std::istringstream in("sesame\n42\nKeep\n\n");
    auto *const realIn = std::cin.rdbuf(in.rdbuf());
    Alert choice;
    choice.buttons = {{"Add"}, {"Keep"}};
    EXPECT_EQ(SSHSessionPasswordPanel().passwordForSSHKey("shop"), "sesame");
    EXPECT_EQ(SSHSessionPasswordPanel().responseToKeyboardPrompt("Code?"), "42");
    EXPECT_EQ(presenter->runModal(choice), AlertAnswer::SecondButton);
    EXPECT_EQ(presenter->runModal(choice), AlertAnswer::Refused);
    EXPECT_EQ(SSHSessionPasswordPanel().passwordForSSHKey("end of file"), std::nullopt);
    std::cin.rdbuf(realIn);
    install(nullptr, nullptr);
    const auto nib = presenter->loadNib("SSHPasswordAlertAccessoryView");
    choice.accessoryView = nib->view("alertResponseAccessoryView");
    EXPECT_FALSE(choice.plainTextField()->isSecret());
    EXPECT_EQ(presenter->loadNib("Another"), nullptr);

    alignas(PlainTextField) std::array<char, sizeof(PlainTextField)> memory{};
    auto *const field = new (memory.data()) PlainTextField(true);
    field->setStringValue("sesame");
    field->~PlainTextField();
    EXPECT_EQ(std::string_view(memory.data(), memory.size()).find("sesame"), std::string::npos);
}
