#include "vm/engine.h"

engine the_engine = {};
