// SPDX-License-Identifier: BSD-3-Clause

// Marks what the shared library shows to its consumers; everything else is built hidden.
#pragma once

#define SSHSESSION_EXPORT __attribute__((visibility("default")))
