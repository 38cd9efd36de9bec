# SPDX-License-Identifier: Apache-2.0
# fuzz: clang for this machine, with its fuzzing engine and sanitizers.
set(QUARL_TARGET fuzz)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
