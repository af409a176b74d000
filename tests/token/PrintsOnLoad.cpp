#include <cstdio>

namespace {

// Joins the fake token: a module that greets on standard output as soon as it is loaded.
const int greeted = std::puts("vendor module loaded");

}  // namespace
