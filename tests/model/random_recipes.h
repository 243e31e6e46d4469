// Random recipes for property tests: valid documents (every value inside its
// decoded range) and random or mutated JSON aimed at the decoder.
#pragma once

#include <nlohmann/json.hpp>

#include <random>

#include "model/document.h"

namespace vg::test {

class RecipeGenerator {
 public:
  explicit RecipeGenerator(unsigned seed) : rng_(seed) {}

  // A document as decoding could produce it.
  EditDocument document();
  GlobalAdjustments adjustments();
  MaskKind maskKind();

  // Random JSON with keys drawn mostly from the recipe's own key names.
  nlohmann::json randomJson(int depth);
  // The encoding of a valid document with a few random nodes replaced,
  // removed or retyped.
  nlohmann::json mutatedDocument();

  std::mt19937_64& rng() { return rng_; }

 private:
  double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }
  int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
  bool chance(double p) { return std::bernoulli_distribution(p)(rng_); }
  // A value in lo...hi, often one of the edges or a round value.
  double ranged(double lo, double hi);
  Point point(double lo, double hi);
  std::vector<Point> strokePoints();
  ToneCurve curve();
  MaskLayer mask();
  double wildNumber();
  std::string wildString();
  void mutate(nlohmann::json& node, int budget);

  std::mt19937_64 rng_;
};

}  // namespace vg::test
