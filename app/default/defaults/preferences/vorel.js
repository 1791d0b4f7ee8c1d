// Where the player works. File URLs, with a slash at the end.
pref("vorel.player.playout.base-uri", "file:///var/lib/vorel/player/");
pref("vorel.appli.software.base-uri", "file:///var/lib/vorel/software/");
pref("vorel.appli.addon.base-uri", "file:///var/lib/vorel/addons/");

// What systemGeneralSettings.version answers.
pref("extensions.lastAppVersion", "0.1.0");

// Which profiles are put in force, and where: vorel.app-profile.PROFILE.DEVICE.CONNECTOR.MASK.
pref("vorel.app-profile.richmedia-player.*.*.*.authorized", true);
pref("vorel.app-profile.manifest-downloader.*.*.*.authorized", true);
pref("vorel.app-profile.medias-reader.*.*.*.authorized", true);
pref("vorel.app-profile.software-manager.*.*.*.authorized", true);
pref("vorel.app-profile.addon-manager.*.*.*.authorized", true);

// What a USB volume may bring. New firmware and add-ons from a volume that anybody can plug in: only if you say so.
pref("vorel.app-profile.storage-external-release-firmware-injector.mass-storage.usb.*.authorized", false);
pref("vorel.app-profile.storage-external-addon-injector.mass-storage.usb.*.authorized", false);
pref("vorel.app-profile.storage-external-richmedia-player-injector.mass-storage.usb.*.authorized", true);
pref("vorel.app-profile.storage-external-medias-reader-injector.mass-storage.usb.*.authorized", true);
pref("vorel.app-profile.storage-external-medias-reader.mass-storage.usb.*.authorized", true);
