#include "nsSampleGrabber.h"

#include "ISampleGrabber.h"
#include "ISampleGrabberCB.h"
#include "nsMediaFilter.h"

namespace {

class SampleGrabber final : public nsImplements<SampleGrabber, nsMediaFilter, ISampleGrabber> {
 public:
  SampleGrabber();

  nsresult SetOneShot(int32_t aOneShot) override { return aOneShot ? E_NOTIMPL : S_OK; }
  nsresult SetMediaType(const AM_MEDIA_TYPE* aType) override;
  nsresult GetConnectedMediaType(AM_MEDIA_TYPE* aType) override;
  nsresult SetBufferSamples(int32_t aBuffer) override { return aBuffer ? E_NOTIMPL : S_OK; }
  nsresult GetCurrentBuffer(int32_t*, int32_t*) override { return VFW_E_WRONG_STATE; }
  nsresult GetCurrentSample(IMediaSample**) override { return E_NOTIMPL; }
  nsresult SetCallback(ISampleGrabberCB* aCallback, int32_t aMethod) override;

  void Receive(IMediaSample* aSample);

 private:
  class InputPin;
  class OutputPin;
  ~SampleGrabber() override = default;
  nsresult OnRun() override;

  InputPin& mInput;
  OutputPin& mOutput;
  nsMutex mLock;
  nsCOMPtr<ISampleGrabberCB> mCallback NS_GUARDED_BY(mLock);
  int32_t mMethod NS_GUARDED_BY(mLock) = 0;
  nsCOMPtr<nsIMediaInput> mNext NS_GUARDED_BY(mLock);  ///< while it runs
};

class SampleGrabber::InputPin final : public nsMediaPinWith<nsIMediaInput> {
 public:
  InputPin(nsMediaFilter& aFilter, SampleGrabber& aGrabber)
      : nsMediaPinWith(aFilter, PINDIR_INPUT, u"Input", {}), mGrabber(aGrabber) {}
  void ReceiveSample(IMediaSample* aSample) override { mGrabber.Receive(aSample); }
  using nsMediaPin::ConnectedType;

  /// Zeros stand for any.
  AM_MEDIA_TYPE mWanted NS_GUARDED_BY(NS_MediaStructureLock()){};

 private:
  bool Takes(const nsMediaType& aType) const override NS_REQUIRES(NS_MediaStructureLock()) {
    return aType.Fits(mWanted);
  }
  SampleGrabber& mGrabber;
};

/// Offers what comes in, so that it can be connected when the input is.
class SampleGrabber::OutputPin final : public nsMediaPinWith<> {
 public:
  OutputPin(nsMediaFilter& aFilter, const InputPin& aInput)
      : nsMediaPinWith(aFilter, PINDIR_OUTPUT, u"Output", {}), mInput(aInput) {}

 private:
  std::vector<nsMediaType> Offers() const override {
    if (!mInput.Peer()) return {};
    return {mInput.ConnectedType()};
  }
  const InputPin& mInput;
};

SampleGrabber::SampleGrabber()
    : mInput(AddPin<InputPin>(*this)), mOutput(AddPin<OutputPin>(mInput)) {
  SetClass(CLSID_SampleGrabber);
}

nsresult SampleGrabber::SetMediaType(const AM_MEDIA_TYPE* aType) {
  if (!aType) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  mInput.mWanted = nsMediaType::Of(*aType).Full();
  return S_OK;
}

nsresult SampleGrabber::GetConnectedMediaType(AM_MEDIA_TYPE* aType) {
  return mInput.ConnectionMediaType(aType);
}

nsresult SampleGrabber::SetCallback(ISampleGrabberCB* aCallback, int32_t aMethod) {
  if (aMethod != 0 && aMethod != 1) return E_INVALIDARG;
  nsCOMPtr<ISampleGrabberCB> callback(aCallback);
  const nsAutoLock lock(mLock);
  mCallback.swap(callback);
  mMethod = aMethod;
  return S_OK;
}

nsresult SampleGrabber::OnRun() {
  const nsAutoLock lock(mLock);
  mNext = do_QueryInterface<nsIMediaInput>(mOutput.Peer());
  return S_OK;
}

void SampleGrabber::Receive(IMediaSample* aSample) {
  nsCOMPtr<ISampleGrabberCB> callback;
  nsCOMPtr<nsIMediaInput> next;
  int32_t method;
  {
    const nsAutoLock lock(mLock);
    callback = mCallback;
    next = mNext;
    method = mMethod;
  }
  if (callback && method == 0) {
    (void)callback->SampleCB(0, aSample);
  } else if (callback) {
    uint8_t* bytes = nullptr;
    if (NS_SUCCEEDED(aSample->GetPointer(&bytes)))
      (void)callback->BufferCB(0, bytes, aSample->GetActualDataLength());
  }
  if (next) next->ReceiveSample(aSample);
}

class NullRenderer final : public nsImplements<NullRenderer, nsMediaFilter> {
 public:
  NullRenderer() {
    SetClass(CLSID_NullRenderer);
    (void)AddPin<InputPin>();
  }

 private:
  class InputPin final : public nsMediaPinWith<nsIMediaInput> {
   public:
    explicit InputPin(nsMediaFilter& aFilter) : nsMediaPinWith(aFilter, PINDIR_INPUT, u"In", {}) {}
    void ReceiveSample(IMediaSample*) override {}
  };
  ~NullRenderer() override = default;
};

}  // namespace

nsCOMPtr<IBaseFilter> NS_NewSampleGrabber() { return MakeRefCounted<SampleGrabber>(); }
nsCOMPtr<IBaseFilter> NS_NewNullRenderer() { return MakeRefCounted<NullRenderer>(); }
