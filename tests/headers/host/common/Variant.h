#pragma once

namespace host {

struct Variant {
  static constexpr int Kinds = 3;
};

}  // namespace host
