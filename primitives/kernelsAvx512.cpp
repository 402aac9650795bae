#include "primitives/kernels.h"
