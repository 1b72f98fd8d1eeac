#pragma once
// "Now" for the engine: seconds since 1970. Injectable so tests never sleep.

#include <functional>

using Clock = std::function<double()>;
double systemNow();
