#include "velmorhost/settings.h"
