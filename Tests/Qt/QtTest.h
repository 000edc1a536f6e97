// A host application for one test: Qt's prompts installed, and a user who handles the real dialogs.
#pragma once

#include <SSHSession/Platform.h>
#include <SSHSession/QtPlatform.h>

#include <QDialog>

#include <gtest/gtest.h>

#include <functional>
#include <string>

class QtTest : public testing::Test {
  protected:
    QtTest() { SSHPlatform::installQt(); }
    ~QtTest() override { SSHPlatform::install(nullptr, nullptr); }
};

// Does something with the next alert as soon as it is on the screen.
void withNextAlert(const std::function<void(QDialog &)> &handle);

// Serves the event loop until the condition holds; fails the test when it does not in time.
void serveUntil(const std::function<bool()> &condition);

// With the mouse, on the button of that title, as soon as there is one.
void click(QWidget &window, const QString &title);

// As in "Tab, Return, Click:OK": each key goes to whatever has the focus then. The user has had
// time to read the question, but for what is "Early Return". A key that is down since before comes
// as "Held Return", or as "Repeated Return" from X11.
void act(QDialog &dialog, const QString &actions);

// All that can be read in the widget, a text a line.
std::string textOf(const QWidget &widget);

// That screen readers have a name for whatever Tab brings the focus to.
void expectNames(const QWidget &widget);
