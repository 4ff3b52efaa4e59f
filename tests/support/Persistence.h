// Duration of an injected failure.
#pragma once

namespace support {

enum class Persistence {
  kTransient,  // one call fails
  kPersistent  // this call and every later one fail
};

}  // namespace support

using support::Persistence;
