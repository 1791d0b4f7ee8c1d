// The file in which a receiver's services are stored, and its place.
#pragma once

#include <string>

#include "nsCOMPtr.h"
#include "nsILog4.h"

class nsIArray;
class nsIMutableArray;

/// The reader and writer of one receiver. All receivers of a process share the place. The file is
/// the authority: a list in memory follows it, also when somebody else has written it. One thread
/// at a time.
class nsChannelsFile {
 public:
  nsChannelsFile();

  /// Sets the place, "channelconf/SYSTEM/channels.conf" below the application's defaults, and makes
  /// its directory. Main thread. NS_ERROR_FAILURE, and the place stays as it was, when the
  /// application has no such directory. The last receiver that calls this wins.
  nsresult initChannelsFilePath(uint32_t aDeliverySystem);
  /// Every receiver that goes takes the place with it, the last one that set it or not.
  static void DropPath();
  /// Empty before initChannelsFilePath.
  static std::string Path();

  /// Appends the services of the file to a list, as nsIBDAScanResultDigitalTvService, and notes the
  /// time of the file. NS_ERROR_NOT_AVAILABLE without a place or a file that can be read.
  /// NS_ERROR_INVALID_ARG at a line whose name or provider does not end where it should: services
  /// in front of it are in the list. A service whose name or provider can't be decoded is left out;
  /// its failure is the result only when it is the last line.
  nsresult parseChannelsFile(nsIMutableArray* aServices);

  /// Replaces the file, in one step that survives a crash. NS_ERROR_FAILURE when it can't be
  /// written, and the file is as it was; and for an element that is no
  /// nsIBDAScanResultDigitalTvService, when the file holds the services in front of it.
  nsresult writeChannelsFile(nsIArray* aServices);

  /// Empties a list and reads the file into it when the file is another than was last read. A file
  /// that is not there, or no more, leaves the list as it is.
  nsresult Refresh(nsIMutableArray* aServices);

 private:
  nsresult AppendService(const struct nsChannelsRecord& aRecord, nsIMutableArray* aAudio,
                         nsIMutableArray* aServices);

  /// When the file that was last read had been written: nanoseconds, for comparison only.
  int64_t mChannelsFileTime = 0;
  bool mHasWritten = false;  ///< since then
  const nsCOMPtr<nsILog4Logger> mLog;
};
