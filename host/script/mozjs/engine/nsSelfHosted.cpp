#include "nsSelfHosted.h"

#include "nsEngineBuild.h"
#include "nsSelfHostedBytes.h"

bool NS_InitSelfHosted(JSContext* cx, JS::SelfHostedWriter aParsed) {
  JS::SelfHostedCache bytes;
  if (kSelfHostedSize > 0 && NS_MarkEngineBuild()) bytes = {kSelfHostedBytes, kSelfHostedSize};
  return JS::InitSelfHostedCode(cx, bytes, aParsed);
}
