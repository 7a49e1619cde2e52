# SPDX-License-Identifier: MIT
#
# 32-bit x86 with the compilers of a 64-bit host. The box's processors have no SSE2: the baseline
# is spelt out, because a 64-bit host's compiler assumes more.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_FLAGS_INIT "-m32 -march=i686 -mtune=generic")
set(CMAKE_CXX_FLAGS_INIT "-m32 -march=i686 -mtune=generic")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
