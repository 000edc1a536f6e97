// A password whose memory is overwritten when its last owner lets go of it.
#pragma once

#include <memory>
#include <string>

using Secret = std::shared_ptr<const std::string>;

// Takes the text over and wipes the original.
Secret makeSecret(std::string &text);
