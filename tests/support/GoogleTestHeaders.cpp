// The precompiled headers of this file are those of all test programs; see tests/CMakeLists.txt.
