# Makes the build of a copy that is built again and again after one small change: scripts/mutate.py has CMake include
# it. Each source of the library is compiled alone, and what does not change comes precompiled.
cmake_language(DEFER CALL set_target_properties camera_handler_objects PROPERTIES UNITY_BUILD OFF)
cmake_language(DEFER CALL target_precompile_headers camera_handler_objects PRIVATE
               <Logger.h> <DirectShow.h> <MultiMediaEncoder.h> <algorithm> <chrono> <condition_variable>
               <memory> <mutex> <string> <thread> <vector>)
