// The console's code page, which the tool changes while it runs.
#pragma once

// Gives the console back the code page that the program found, which other programs go on using. For ends of
// the process that leave StandardStreams no time. From any thread, and more than once.
void RestoreCodePage();
