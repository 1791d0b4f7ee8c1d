// Puts a profile in force on a storage adapter. Nothing more is needed where the application only wants to know which
// directory it may use: it asks the manager for the bindings of the profile and reads their adapter's directory.
"use strict";

class DirectoryBinding {
  adapter = null;
  applicationProfile = null;

  init(adapter, profile, branch) {
    this.adapter = adapter;
    this.applicationProfile = profile;
  }

  // An adapter without a directory is not in force: there is nothing that it could offer.
  isEnabled() {
    return this.adapter.directory !== null;
  }
}

function NSGetFactory(cid) {
  return DirectoryBinding;
}
