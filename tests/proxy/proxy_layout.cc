#include "proxy_layout.h"
