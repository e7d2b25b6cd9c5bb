#pragma once

namespace ptzgate {

/// Of several functions the one that fits, for `std::visit`.
template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

}  // namespace ptzgate
