// Carries the precompiled header; see cmake/targets.cmake.
