// The image of the process that a crash leaves on the disk, with all that the process knew.
#pragma once

// For the rest of the program's life. On Linux other processes of the same user, debuggers among
// them, cannot read its memory any more either (PR_SET_DUMPABLE in prctl(2)).
void forbidCoreDump() noexcept;
