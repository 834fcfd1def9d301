// The source of the target that builds the precompiled header; see cmake/targets.cmake.
