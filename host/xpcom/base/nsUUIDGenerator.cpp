#include "nsUUIDGenerator.h"

#include <prrng.h>

#include <new>

#include "nsXPCOM.h"

nsresult nsUUIDGenerator::GenerateUUIDInPlace(nsID* aId) {
  if (!aId) return NS_ERROR_NULL_POINTER;
  nsID id;
  if (PR_GetRandomNoise(&id, sizeof id) != sizeof id) return NS_ERROR_NOT_AVAILABLE;
  id.m2 = static_cast<uint16_t>((id.m2 & 0x0FFF) | 0x4000);
  id.m3[0] = static_cast<uint8_t>((id.m3[0] & 0x3F) | 0x80);
  *aId = id;
  return NS_OK;
}

nsresult nsUUIDGenerator::GenerateUUID(nsID** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsID id;
  const nsresult rv = GenerateUUIDInPlace(&id);
  if (NS_SUCCEEDED(rv)) *aResult = new (NS_Alloc(sizeof(nsID))) nsID(id);
  return rv;
}
