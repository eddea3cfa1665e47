#include "provider_layout.h"
