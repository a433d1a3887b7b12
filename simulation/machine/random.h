// The dice: numbers that follow from a seed alone, the same with every compiler and library (the
// standard's distributions are not).  xoshiro256**, seeded by splitmix64.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvqrn::simulation {

class Dice {
 public:
  Dice() : Dice(0) {}
  explicit Dice(std::uint64_t seed) {
    for (std::uint64_t& word : state_) {
      seed += 0x9E3779B97F4A7C15U;
      std::uint64_t mixed = (seed ^ (seed >> 30U)) * 0xBF58476D1CE4E5B9U;
      mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
      word = mixed ^ (mixed >> 31U);
    }
  }

  std::uint64_t Next() {
    const std::uint64_t result = Turn(state_[1] * 5, 7) * 9;
    const std::uint64_t shifted = state_[1] << 17U;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = Turn(state_[3], 45);
    return result;
  }

  // 0 to count - 1.
  std::int64_t Below(std::int64_t count) {
    return static_cast<std::int64_t>((Next() >> 11U) % static_cast<std::uint64_t>(count));
  }
  std::int64_t Between(std::int64_t least, std::int64_t most) {
    return least + Below(most - least + 1);
  }
  // True once in so many throws; never for 0.
  bool OneIn(std::int64_t count) { return count > 0 && Below(count) == 0; }
  // 1 to most, each order of magnitude as likely as the next.
  std::int64_t Spread(std::int64_t most) {
    std::int64_t magnitudes = 1;
    while ((std::int64_t{1} << magnitudes) < 2 * most) {
      magnitudes++;
    }
    const std::int64_t limit = std::int64_t{1} << Below(magnitudes);
    return Between(limit / 2 + 1, limit < most ? limit : most);
  }
  template <typename Type, std::size_t COUNT>
  const Type& Of(const Type (&choices)[COUNT]) {
    return choices[Below(COUNT)];
  }

 private:
  static std::uint64_t Turn(std::uint64_t word, unsigned bits) {
    return (word << bits) | (word >> (64U - bits));
  }
  std::uint64_t state_[4];
};

}  // namespace zvqrn::simulation
