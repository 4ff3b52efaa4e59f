// The library's own thread, as the system sees it.
#pragma once

// Gives the calling thread the name and the priority of the encoder's: a little before what can wait, where
// the system offers that and nobody has decided otherwise. Never fails, and says nothing: encoding goes on
// without it. Once a thread, before its first frame.
void PrepareEncoderThread() noexcept;
