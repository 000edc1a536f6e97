// A host application for one test: Qt's prompts installed, and a user who handles the real dialogs.
#pragma once

#include <SSHSession/Platform.h>

#include <QDialog>
#include <QPlainTextEdit>
#include <QPushButton>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

class QtTest : public testing::Test {
  protected:
    QtTest();
    ~QtTest() override;

    // The log's lines, all of them written on the main thread.
    std::vector<std::string> log;
};

// Does something with the next alert as soon as it is on the screen. With `stayed` it is closed
// afterwards, and `*stayed` says whether it was still there.
void withNextAlert(std::function<void(QDialog &)> act, bool *stayed = nullptr);

// Serves the event loop until the condition holds; fails the test when it does not in time.
void serveUntil(const std::function<bool()> &condition);

QPushButton *buttonOf(QWidget &widget, const QString &text);

// Each key goes to whatever has the focus then. "Click:" presses the button of that name instead,
// and "Close" closes the window.
void act(QDialog &dialog, const std::vector<std::string> &actions);

// All that can be read in the widget, a text a line.
std::string textOf(const QWidget &widget);
