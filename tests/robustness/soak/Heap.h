// How much memory is allocated, in bytes, over all threads. What stands behind it depends on whose allocator
// the program has: the system's or a sanitizer's.
#pragma once

#include <cstddef>

std::size_t HeapInUse();

// Lets the allocator keep as little as it can of what is freed, so that what it says tells what is in use.
// Starts the program anew where that can be had only from the beginning: the first thing in main.
void MakeAllocatorTidy(char** argv);

// Gives memory that was freed back to the system, as far as its pages are free as a whole.
void GiveFreePagesBack();

// Whether memory that was freed stays in the process by design, so that its resident size says nothing.
bool AllocatorKeepsFreedMemory();
