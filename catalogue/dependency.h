#pragma once
// What a component needs of another one: a name, a version and a rule that says
// which candidate components satisfy it.

#include <memory>
#include <string>

#include "catalogue/version.h"

namespace kx::catalogue {

class ComponentBase;

class BaseDependency {
 public:
  BaseDependency(std::string name, Version version, std::string title, bool isSoft = false, bool requestFlag = false);
  virtual ~BaseDependency();
  BaseDependency& operator=(const BaseDependency&) = delete;

  // Every rule first requires the candidate's name to equal `name` (NamesEqual).
  virtual bool IsSatisfiedBy(const ComponentBase& candidate) const = 0;
  // A new object of the same class with every field copied.
  virtual std::unique_ptr<BaseDependency> Clone() const = 0;

  std::string name;
  Version version;
  std::string title;  // for messages and writing back; never matched
  bool isSoft;        // an unmet soft dependency does not fail an installation
  bool requestFlag;   // false for everything read from a CDF; carried by Clone

 protected:
  BaseDependency(const BaseDependency&) = default;  // for Clone only: no slicing copies
};

// Same version, or the request lies between the candidate's compatibility version
// (which must be present) and its version, and not below its oldest compatible one.
class StrictDependency : public BaseDependency {
 public:
  using BaseDependency::BaseDependency;
  bool IsSatisfiedBy(const ComponentBase& candidate) const override;
  std::unique_ptr<BaseDependency> Clone() const override;
};

// Exactly the same version parts (2.0 satisfies 2).
class ExactVersionDependency : public StrictDependency {
 public:
  using StrictDependency::StrictDependency;
  bool IsSatisfiedBy(const ComponentBase& candidate) const override;
  std::unique_ptr<BaseDependency> Clone() const override;
};

// The candidate's version, or else its compatibility version, reaches the request.
// The oldest compatible version is not looked at.
class MinimumDependency : public BaseDependency {
 public:
  using BaseDependency::BaseDependency;
  bool IsSatisfiedBy(const ComponentBase& candidate) const override;
  std::unique_ptr<BaseDependency> Clone() const override;
};

// As MinimumDependency, and the request is not older than the candidate's oldest
// compatible version when that is present.
class LooseDependency : public MinimumDependency {
 public:
  using MinimumDependency::MinimumDependency;
  bool IsSatisfiedBy(const ComponentBase& candidate) const override;
  std::unique_ptr<BaseDependency> Clone() const override;
};

}  // namespace kx::catalogue
