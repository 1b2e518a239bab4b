#pragma once

#include "gate/http/HttpExchange.h"

/// "/", the console's page, and "/assets/NAME", what it consists of. They hold no figure.
void ServeAsset(HttpExchange& exchange);
