// A dark palette for displays and desktops whose own Qt does not offer one.
#pragma once

void useDarkPalette();
