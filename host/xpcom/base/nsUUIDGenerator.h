// Makes random identifiers.
#pragma once

#include "nsIUUIDGenerator.h"
#include "nsImplements.h"

/// "@mozilla.org/uuid-generator;1": random identifiers of version 4, from the system's random
/// source.
class nsUUIDGenerator final : public nsImplements<nsUUIDGenerator, nsIUUIDGenerator> {
 public:
  nsresult GenerateUUID(nsID** aResult) override;
  nsresult GenerateUUIDInPlace(nsID* aId) override;

 private:
  ~nsUUIDGenerator() override = default;
};
