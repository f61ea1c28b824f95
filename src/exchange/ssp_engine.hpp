// What the engine offers beside its exported functions.
#pragma once

#include "exchange/left_over.hpp"
