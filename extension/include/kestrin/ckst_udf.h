// Everything an extension unit needs, in one include.
#pragma once

#include "kestrin/errors.h"
#include "kestrin/isa.h"
#include "kestrin/module.h"
#include "kestrin/strings.h"
#include "kestrin/types.h"
#include "kestrin/unit.h"
#include "kestrin/value.h"
