// Twin cases of the resample kernels.
#include "twin/twin.h"
