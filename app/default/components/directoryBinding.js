// Puts a profile in force on a storage adapter. Nothing more is needed where the application only wants to know which
// directory it may use: it asks the manager for the bindings of the profile and reads their adapter's directory.
"use strict";

class DirectoryBinding {
  init(adapter, profile, branch) {
    this.adapter = adapter;
    this.applicationProfile = profile;
    this.branch = branch;
  }

  // An adapter without a directory is not in force: there is nothing that it could offer.
  isEnabled() {
    return this.adapter.directory !== null;
  }

  QueryInterface(iid) {
    if (iid.equals(Components.interfaces.nsISystemApplicationProfileBinding)) return this;
    throw Components.results.NS_ERROR_NO_INTERFACE;
  }
}

function NSGetFactory(cid) {
  return DirectoryBinding;
}
