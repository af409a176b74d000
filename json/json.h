#pragma once

// The JSON document library: parse a text into a tree of JSONNode values, read and change it,
// write it back. JSONNode.h tells how to use it.

#include "json/_internal/Source/JSONNode.h"
#include "json/_internal/Source/JSONValidator.h"
#include "json/_internal/Source/JSONWorker.h"
