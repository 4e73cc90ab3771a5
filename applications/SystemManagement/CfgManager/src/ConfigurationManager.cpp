#include "ConfigurationManager.h"
