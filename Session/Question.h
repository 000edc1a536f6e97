// Questions to the user, for as long as somebody waits for the answer.
#pragma once

#include <functional>

namespace SSHEngine {

class Connection;

// Runs `question` as SSHPlatform::askOnMainThread does. Answers false, with `question` not run,
// when the engine asks nobody, and when the connection is shut down before the main thread comes
// round to it. One that has begun is waited for; its alerts can watch the connection's
// `endDescriptor`.
bool askOnMainThread(const Connection &connection, const std::function<void()> &question);

} // namespace SSHEngine
