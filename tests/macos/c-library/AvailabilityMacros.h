// The older name of the same.
#pragma once

#include <Availability.h>
