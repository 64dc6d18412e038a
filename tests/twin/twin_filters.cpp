// Twin cases of the filters kernels.
#include "twin/twin.h"
