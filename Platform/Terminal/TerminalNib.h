// The terminal's form of the user interface files: which fields an accessory view asks for.
#pragma once

#include <SSHSession/Alert.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace SSHPlatform {

class TerminalTextField final : public TextField {
  public:
    explicit TerminalTextField(bool secret) : mIsSecret(secret) {}
    ~TerminalTextField() override { forget(); }

    bool isSecret() const { return mIsSecret; }
    std::string stringValue() const override { return mValue; }
    void setStringValue(const std::string &value) override;

  private:
    void forget();

    const bool mIsSecret;
    std::string mValue;
};

class TerminalView final : public View {
  public:
    explicit TerminalView(TerminalTextField &asksFor) : field(asksFor) {}
    TerminalTextField &field;
};

std::unique_ptr<Nib> loadTerminalNib(std::string_view name);

} // namespace SSHPlatform
