// How the system refers to an open file.
#pragma once

using FileHandle = int;
inline constexpr FileHandle kNoFile = -1;
