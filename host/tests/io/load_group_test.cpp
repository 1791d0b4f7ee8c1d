// Load groups.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "nsHost.h"
#include "nsIBinaryInputStream.h"
#include "nsIBinaryOutputStream.h"
#include "nsILoadGroup.h"
#include "nsIRequestObserver.h"
#include "nsISimpleEnumerator.h"
#include "nsImplements.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

class Request final : public nsImplements<Request, nsIRequest> {
 public:
  explicit Request(uint32_t aFlags) : mFlags(aFlags) {}
  nsresult GetName(nsACString& aName) override {
    NS_Assign(aName, "request");
    return NS_OK;
  }
  nsresult IsPending(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetStatus(nsresult* aStatus) override {
    *aStatus = mStatus;
    return NS_OK;
  }
  nsresult Cancel(nsresult aStatus) override {
    mStatus = aStatus;
    if (mOnCancel) mOnCancel();
    return mCancelResult;
  }
  nsresult Suspend() override { return ++mSuspended, NS_OK; }
  nsresult Resume() override { return --mSuspended, NS_OK; }
  nsresult GetLoadGroup(nsILoadGroup**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetLoadGroup(nsILoadGroup*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetLoadFlags(uint32_t* aFlags) override {
    *aFlags = mFlags;
    return NS_OK;
  }
  nsresult SetLoadFlags(uint32_t) override { return NS_ERROR_NOT_IMPLEMENTED; }

  uint32_t mFlags;
  int mSuspended = 0;
  nsresult mStatus = NS_OK, mCancelResult = NS_OK;
  std::function<void()> mOnCancel;

 private:
  ~Request() override = default;
};

class Observer final : public nsImplements<Observer, nsIRequestObserver> {
 public:
  nsresult OnStartRequest(nsIRequest*, nsISupports*) override {
    mSeen += "start ";
    return NS_OK;
  }
  nsresult OnStopRequest(nsIRequest*, nsISupports*, nsresult aStatus) override {
    mSeen += "stop:" + std::string(NS_ResultName(aStatus)) + " ";
    return NS_OK;
  }
  std::string mSeen;

 private:
  ~Observer() override = default;
};

class LoadGroup : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mGroup = do_CreateInstance<nsILoadGroup>("@mozilla.org/network/load-group;1");
    ASSERT_TRUE(mGroup);
    ASSERT_EQ(NS_OK, mGroup->SetGroupObserver(mObserver.get()));
  }
  void TearDown() override {
    mGroup = nullptr;
    mHost.Stop();
  }
  nsCOMPtr<Request> Add(uint32_t aFlags = nsIRequest::LOAD_NORMAL) {
    const auto request = MakeRefCounted<Request>(aFlags);
    EXPECT_EQ(NS_OK, mGroup->AddRequest(request.get(), nullptr));
    return request;
  }
  uint32_t Active() {
    uint32_t count = 99;
    EXPECT_EQ(NS_OK, mGroup->GetActiveCount(&count));
    return count;
  }
  nsHost mHost;
  nsCOMPtr<nsILoadGroup> mGroup;
  const nsCOMPtr<Observer> mObserver = MakeRefCounted<Observer>();
};

TEST_F(LoadGroup, ABackgroundRequestCountsAsActive) {
  const auto background = Add(nsIRequest::LOAD_BACKGROUND);
  EXPECT_EQ(0u, Active());
  const auto first = Add(), second = Add();
  EXPECT_EQ(NS_OK, mGroup->AddRequest(first.get(), nullptr));
  EXPECT_EQ(2u, Active());
  first->mFlags = nsIRequest::LOAD_BACKGROUND;  // too late to count
  EXPECT_EQ(NS_OK, mGroup->RemoveRequest(first.get(), nullptr, NS_OK));
  EXPECT_EQ(NS_ERROR_FAILURE, mGroup->RemoveRequest(first.get(), nullptr, NS_OK));
  EXPECT_EQ(NS_OK, mGroup->RemoveRequest(second.get(), nullptr, NS_BINDING_ABORTED));
  EXPECT_EQ("start stop:NS_BINDING_ABORTED ", mObserver->mSeen);
  nsCOMPtr<nsISimpleEnumerator> requests;
  nsCOMPtr<nsISupports> request;
  EXPECT_EQ(NS_OK, mGroup->GetRequests(requests.getter_AddRefs()));
  EXPECT_EQ(NS_OK, requests->GetNext(request.getter_AddRefs()));
  EXPECT_TRUE(NS_SameObject(background.get(), request.get()));
}

TEST_F(LoadGroup, ARequestEscapesTheCancelling) {
  const auto first = Add(), removed = Add(), failing = Add(), last = Add();
  failing->mCancelResult = NS_ERROR_FAILURE;
  last->mOnCancel = [&] {
    EXPECT_EQ(NS_OK, mGroup->RemoveRequest(removed.get(), nullptr, NS_OK));
    EXPECT_EQ(NS_BINDING_ABORTED, mGroup->AddRequest(removed.get(), nullptr));
  };
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mGroup->Cancel(NS_OK));
  EXPECT_EQ(NS_ERROR_FAILURE, mGroup->Cancel(NS_BINDING_ABORTED));
  EXPECT_EQ(NS_BINDING_ABORTED, first->mStatus);
  EXPECT_EQ(NS_BINDING_ABORTED, failing->mStatus);
  EXPECT_EQ(NS_OK, removed->mStatus);
  EXPECT_EQ(0u, Active());
  nsresult status = NS_ERROR_FAILURE;
  EXPECT_EQ(NS_OK, mGroup->GetStatus(&status));
  EXPECT_EQ(NS_OK, status);
  Add();
  EXPECT_EQ(1u, Active());
}

TEST_F(LoadGroup, CirclesOfGroupsOrStreamsAreWalkedForEver) {
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mGroup->AddRequest(mGroup.get(), nullptr));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mGroup->SetDefaultLoadRequest(mGroup.get()));
  const auto in = do_CreateInstance<nsIBinaryInputStream>("@mozilla.org/binaryinputstream;1");
  const auto out = do_CreateInstance<nsIBinaryOutputStream>("@mozilla.org/binaryoutputstream;1");
  EXPECT_EQ(NS_ERROR_INVALID_ARG, in->SetInputStream(in.get()));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, out->SetOutputStream(out.get()));
}

TEST_F(LoadGroup, TheDefaultRequestIsNotAsked) {
  nsCString name;
  nsresult status = NS_OK;
  EXPECT_EQ(NS_ERROR_NOT_AVAILABLE, mGroup->GetName(name));
  const auto document = MakeRefCounted<Request>(nsIRequest::LOAD_BYPASS_CACHE | 0x10000);
  document->mStatus = NS_ERROR_OFFLINE;
  EXPECT_EQ(NS_OK, mGroup->SetDefaultLoadRequest(document.get()));
  EXPECT_EQ(NS_OK, mGroup->GetName(name));
  EXPECT_EQ("request", name);
  EXPECT_EQ(NS_OK, mGroup->GetStatus(&status));
  EXPECT_EQ(NS_ERROR_OFFLINE, status);
  uint32_t flags = 0;
  EXPECT_EQ(NS_OK, mGroup->GetLoadFlags(&flags));
  EXPECT_EQ(nsIRequest::LOAD_BYPASS_CACHE, flags);
  const auto request = Add();
  EXPECT_EQ(NS_OK, mGroup->Suspend());
  EXPECT_EQ(1, request->mSuspended);
  EXPECT_EQ(NS_OK, mGroup->Resume());
  EXPECT_EQ(0, request->mSuspended);
}

}  // namespace
