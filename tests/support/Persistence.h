// How long a failure that a test brings about goes on.
#pragma once

enum class Persistence { kTransient, kPersistent };
