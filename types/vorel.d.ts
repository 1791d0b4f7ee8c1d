// What scripts find in their environment. Made by `vorel --print-types`: do not edit.

/** An interface of Components.interfaces: its identifier, its constants, and the right side of instanceof. */
interface nsInterfaceID<T> extends Function {
  readonly prototype: T;
  readonly name: string;
  readonly number: string;
  [Symbol.hasInstance](value: unknown): value is T;
}
/** What stands for an identifier: an interface, a global name of one, or "{6b1...}". */
type nsIDLike = nsInterfaceID<any> | string | Function;
/** An object of script that implements an interface; what it leaves out does nothing. */
type nsScripted<T> = Partial<Omit<T, keyof nsISupports>> & { QueryInterface?(iid: nsIDLike): unknown };

interface nsISupports {
  /** The same object, with the members of the interface; an error when it does not implement it. */
  QueryInterface<T>(iid: nsInterfaceID<T>): this & T;
}

interface nsIHostDocument extends nsISupports {
  readonly baseURIObject: nsIURI | null;
  readonly loadGroup: nsILoadGroup | null;
  readonly baseURI: string | null;
}

interface nsIWeakReference extends nsISupports {
  QueryReferent(uuid: nsIDLike): any;
}

interface nsISupportsWeakReference extends nsISupports {
  GetWeakReference(): nsIWeakReference | null;
}

interface nsIClassInfo extends nsISupports {
  readonly SINGLETON: 1;
  readonly THREADSAFE: 2;
  readonly MAIN_THREAD_ONLY: 4;
  readonly DOM_OBJECT: 8;
  readonly PLUGIN_OBJECT: 16;
  readonly CONTENT_NODE: 64;
  readonly RESERVED: 2147483648;
  getInterfaces(): nsIDLike[];
  getHelperForLanguage(language: number): nsISupports | null;
  readonly contractID: string | null;
  readonly classDescription: string | null;
  readonly classID: nsIDLike;
  readonly implementationLanguage: number;
  readonly flags: number;
}

interface nsIProgrammingLanguage extends nsISupports {
  readonly UNKNOWN: 0;
  readonly CPLUSPLUS: 1;
  readonly JAVASCRIPT: 2;
  readonly PYTHON: 3;
  readonly PERL: 4;
  readonly JAVA: 5;
  readonly ZX81_BASIC: 6;
  readonly JAVASCRIPT2: 7;
  readonly RUBY: 8;
  readonly PHP: 9;
  readonly TCL: 10;
  readonly MAX: 10;
}

interface nsIInterfaceRequestor extends nsISupports {
  getInterface(uuid: nsIDLike): any;
}

interface nsIComponentManager extends nsISupports {
  getClassObject(class_: nsIDLike, iid: nsIDLike): any;
  getClassObjectByContractID(contractID: string | null, iid: nsIDLike): any;
  createInstance(class_: nsIDLike, delegate: nsISupports | null, iid: nsIDLike): any;
  createInstanceByContractID(contractID: string | null, delegate: nsISupports | null, iid: nsIDLike): any;
  addBootstrappedManifestLocation(location: nsILocalFile | null): void;
  removeBootstrappedManifestLocation(location: nsILocalFile | null): void;
}

interface nsIServiceManager extends nsISupports {
  getService(class_: nsIDLike, iid: nsIDLike): any;
  getServiceByContractID(contractID: string | null, iid: nsIDLike): any;
  isServiceInstantiated(class_: nsIDLike, iid: nsIDLike): boolean;
  isServiceInstantiatedByContractID(contractID: string | null, iid: nsIDLike): boolean;
}

interface nsIComponentRegistrar extends nsISupports {
  autoRegister(spec: nsIFile | null): void;
  autoUnregister(spec: nsIFile | null): void;
  registerFactory(class_: nsIDLike, className: string | null, contractID: string | null, factory: nsIFactory | nsScripted<nsIFactory> | null): void;
  unregisterFactory(class_: nsIDLike, factory: nsIFactory | nsScripted<nsIFactory> | null): void;
  registerFactoryLocation(class_: nsIDLike, className: string | null, contractID: string | null, file: nsIFile | null, loaderStr: string | null, type: string | null): void;
  unregisterFactoryLocation(class_: nsIDLike, file: nsIFile | null): void;
  isCIDRegistered(class_: nsIDLike): boolean;
  isContractIDRegistered(contractID: string | null): boolean;
  enumerateCIDs(): nsISimpleEnumerator | null;
  enumerateContractIDs(): nsISimpleEnumerator | null;
  CIDToContractID(class_: nsIDLike): string | null;
  contractIDToCID(contractID: string | null): nsIDLike;
}

interface nsIFactory extends nsISupports {
  createInstance(outer: nsISupports | null, iid: nsIDLike): any;
  lockFactory(lock: boolean): void;
}

interface nsIModule extends nsISupports {
  getClassObject(compMgr: nsIComponentManager | null, class_: nsIDLike, iid: nsIDLike): any;
  registerSelf(compMgr: nsIComponentManager | null, location: nsIFile | null, loaderStr: string | null, type: string | null): void;
  unregisterSelf(compMgr: nsIComponentManager | null, location: nsIFile | null, loaderStr: string | null): void;
  canUnload(compMgr: nsIComponentManager | null): boolean;
}

interface nsICategoryManager extends nsISupports {
  getCategoryEntry(category: string | null, entry: string | null): string | null;
  addCategoryEntry(category: string | null, entry: string | null, value: string | null, persist: boolean, replace: boolean): string | null;
  deleteCategoryEntry(category: string | null, entry: string | null, persist: boolean): void;
  deleteCategory(category: string | null): void;
  enumerateCategory(category: string | null): nsISimpleEnumerator | null;
  enumerateCategories(): nsISimpleEnumerator | null;
}

interface nsIObserver extends nsISupports {
  observe(subject: nsISupports | null, topic: string | null, data: string | null): void;
}

interface nsIObserverService extends nsISupports {
  addObserver(anObserver: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null, topic: string | null, ownsWeak: boolean): void;
  removeObserver(anObserver: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null, topic: string | null): void;
  notifyObservers(subject: nsISupports | null, topic: string | null, someData: string | null): void;
  enumerateObservers(topic: string | null): nsISimpleEnumerator | null;
}

interface nsIMemory extends nsISupports {
  heapMinimize(immediate: boolean): void;
  isLowMemory(): boolean;
}

interface nsIDebug extends nsISupports {
  assertion(str: string | null, expr: string | null, file: string | null, line: number): void;
  warning(str: string | null, file: string | null, line: number): void;
  break(file: string | null, line: number): void;
  abort(file: string | null, line: number): void;
}

interface nsIDebug2 extends nsIDebug {
  readonly isDebugBuild: boolean;
  readonly assertionCount: number;
}

interface nsIConsoleService extends nsISupports {
  logMessage(message: nsIConsoleMessage | null): void;
  logStringMessage(message: string | null): void;
  getMessageArray(): (nsIConsoleMessage | null)[];
  registerListener(listener: nsIConsoleListener | nsScripted<nsIConsoleListener> | nsIConsoleListener["observe"] | null): void;
  unregisterListener(listener: nsIConsoleListener | nsScripted<nsIConsoleListener> | nsIConsoleListener["observe"] | null): void;
  reset(): void;
}

interface nsIConsoleMessage extends nsISupports {
  readonly message: string | null;
}

interface nsIConsoleListener extends nsISupports {
  observe(message: nsIConsoleMessage | null): void;
}

interface nsIUUIDGenerator extends nsISupports {
  generateUUID(): nsIDLike;
}

interface nsIPrefService extends nsISupports {
  readUserPrefs(file: nsIFile | null): void;
  resetPrefs(): void;
  resetUserPrefs(): void;
  savePrefFile(file: nsIFile | null): void;
  getBranch(prefRoot: string | null): nsIPrefBranch | null;
  getDefaultBranch(prefRoot: string | null): nsIPrefBranch | null;
}

interface nsIPrefBranch extends nsISupports {
  readonly PREF_INVALID: 0;
  readonly PREF_STRING: 32;
  readonly PREF_INT: 64;
  readonly PREF_BOOL: 128;
  readonly root: string | null;
  getPrefType(prefName: string | null): number;
  getBoolPref(prefName: string | null): boolean;
  setBoolPref(prefName: string | null, value: boolean): void;
  getCharPref(prefName: string | null): string | null;
  setCharPref(prefName: string | null, value: string | null): void;
  getIntPref(prefName: string | null): number;
  setIntPref(prefName: string | null, value: number): void;
  getComplexValue(prefName: string | null, type: nsIDLike): any;
  setComplexValue(prefName: string | null, type: nsIDLike, value: nsISupports | null): void;
  clearUserPref(prefName: string | null): void;
  lockPref(prefName: string | null): void;
  prefHasUserValue(prefName: string | null): boolean;
  prefIsLocked(prefName: string | null): boolean;
  unlockPref(prefName: string | null): void;
  deleteBranch(startingAt: string | null): void;
  getChildList(startingAt: string | null): string[];
  resetBranch(startingAt: string | null): void;
  addObserver(domain: string | null, observer: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null, holdWeak: boolean): void;
  removeObserver(domain: string | null, observer: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null): void;
}

interface nsIPrefBranch2 extends nsIPrefBranch {
}

interface nsIPrefBranchInternal extends nsIPrefBranch2 {
}

interface nsIEventTarget extends nsISupports {
  readonly DISPATCH_NORMAL: 0;
  readonly DISPATCH_SYNC: 1;
  dispatch(event: nsIRunnable | nsScripted<nsIRunnable> | nsIRunnable["run"] | null, flags: number): void;
  isOnCurrentThread(): boolean;
}

interface nsIThread extends nsIEventTarget {
  shutdown(): void;
  hasPendingEvents(): boolean;
  processNextEvent(mayWait: boolean): boolean;
}

interface nsIThreadInternal extends nsIThread {
  observer: nsIThreadObserver | null;
  readonly recursionDepth: number;
  addObserver(observer: nsIThreadObserver | null): void;
  removeObserver(observer: nsIThreadObserver | null): void;
}

interface nsIThreadObserver extends nsISupports {
  onDispatchedEvent(thread: nsIThreadInternal | null): void;
  onProcessNextEvent(thread: nsIThreadInternal | null, mayWait: boolean, recursionDepth: number): void;
  afterProcessNextEvent(thread: nsIThreadInternal | null, recursionDepth: number): void;
}

interface nsIThreadManager extends nsISupports {
  readonly DEFAULT_STACK_SIZE: 0;
  newThread(creationFlags: number, stackSize?: number): nsIThread | null;
  readonly mainThread: nsIThread | null;
  readonly currentThread: nsIThread | null;
  readonly isMainThread: boolean;
  readonly isCycleCollectorThread: boolean;
}

interface nsIRunnable extends nsISupports {
  run(): void;
}

interface nsITimer extends nsISupports {
  readonly TYPE_ONE_SHOT: 0;
  readonly TYPE_REPEATING_SLACK: 1;
  readonly TYPE_REPEATING_PRECISE: 2;
  readonly TYPE_REPEATING_PRECISE_CAN_SKIP: 3;
  init(observer: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null, delay: number, type: number): void;
  initWithCallback(callback: nsITimerCallback | nsScripted<nsITimerCallback> | nsITimerCallback["notify"] | null, delay: number, type: number): void;
  cancel(): void;
  delay: number;
  type: number;
  readonly callback: nsITimerCallback | null;
  target: nsIEventTarget | null;
}

interface nsITimerCallback extends nsISupports {
  notify(timer: nsITimer | null): void;
}

interface nsIArray extends nsISupports {
  readonly length: number;
  queryElementAt(index: number, uuid: nsIDLike): any;
  indexOf(startIndex: number, element: nsISupports | null): number;
  enumerate(): nsISimpleEnumerator | null;
  readonly [index: number]: any;
  [Symbol.iterator](): Iterator<any>;
}

interface nsIMutableArray extends nsIArray {
  appendElement(element: nsISupports | null, weak: boolean): void;
  removeElementAt(index: number): void;
  insertElementAt(element: nsISupports | null, index: number, weak: boolean): void;
  replaceElementAt(element: nsISupports | null, index: number, weak: boolean): void;
  clear(): void;
}

interface nsISimpleEnumerator extends nsISupports {
  hasMoreElements(): boolean;
  getNext(): nsISupports | null;
  [Symbol.iterator](): Iterator<any>;
}

interface nsIStringEnumerator extends nsISupports {
  hasMore(): boolean;
  getNext(): string;
  [Symbol.iterator](): Iterator<string>;
}

interface nsIUTF8StringEnumerator extends nsISupports {
  hasMore(): boolean;
  getNext(): string;
  [Symbol.iterator](): Iterator<string>;
}

interface nsISupportsPrimitive extends nsISupports {
  readonly TYPE_ID: 1;
  readonly TYPE_CSTRING: 2;
  readonly TYPE_STRING: 3;
  readonly TYPE_PRBOOL: 4;
  readonly TYPE_PRUINT8: 5;
  readonly TYPE_PRUINT16: 6;
  readonly TYPE_PRUINT32: 7;
  readonly TYPE_PRUINT64: 8;
  readonly TYPE_PRTIME: 9;
  readonly TYPE_CHAR: 10;
  readonly TYPE_PRINT16: 11;
  readonly TYPE_PRINT32: 12;
  readonly TYPE_PRINT64: 13;
  readonly TYPE_FLOAT: 14;
  readonly TYPE_DOUBLE: 15;
  readonly TYPE_VOID: 16;
  readonly TYPE_INTERFACE_POINTER: 17;
  readonly type: number;
}

interface nsISupportsCString extends nsISupportsPrimitive {
  get data(): string;
  set data(value: string | null);
  toString(): string | null;
}

interface nsISupportsString extends nsISupportsPrimitive {
  get data(): string;
  set data(value: string | null);
  toString(): string | null;
}

interface nsISupportsPRBool extends nsISupportsPrimitive {
  data: boolean;
  toString(): string | null;
}

interface nsISupportsPRUint32 extends nsISupportsPrimitive {
  data: number;
  toString(): string | null;
}

interface nsISupportsPRInt32 extends nsISupportsPrimitive {
  data: number;
  toString(): string | null;
}

interface nsISupportsInterfacePointer extends nsISupportsPrimitive {
  data: nsISupports | null;
  dataIID: nsIDLike;
  toString(): string | null;
}

interface nsISupportsID extends nsISupportsPrimitive {
  data: nsIDLike;
  toString(): string | null;
}

interface nsIProperties extends nsISupports {
  get(prop: string | null, iid: nsIDLike): any;
  set(prop: string | null, value: nsISupports | null): void;
  has(prop: string | null): boolean;
  undefine(prop: string | null): void;
  getKeys(): string[];
}

interface nsIPropertyBag extends nsISupports {
  readonly enumerator: nsISimpleEnumerator | null;
  getProperty(name: string | null): nsIVariant | null;
}

interface nsIVariant extends nsISupports {
}

interface nsIFile extends nsISupports {
  readonly NORMAL_FILE_TYPE: 0;
  readonly DIRECTORY_TYPE: 1;
  readonly OS_READAHEAD: 1073741824;
  readonly DELETE_ON_CLOSE: 2147483648;
  append(node: string | null): void;
  normalize(): void;
  create(type: number, permissions: number): void;
  get leafName(): string;
  set leafName(value: string | null);
  copyTo(newParentDir: nsIFile | null, newName: string | null): void;
  copyToFollowingLinks(newParentDir: nsIFile | null, newName: string | null): void;
  moveTo(newParentDir: nsIFile | null, newName: string | null): void;
  remove(recursive: boolean): void;
  permissions: number;
  permissionsOfLink: number;
  lastModifiedTime: number | bigint;
  lastModifiedTimeOfLink: number | bigint;
  fileSize: number | bigint;
  readonly fileSizeOfLink: number | bigint;
  readonly target: string;
  readonly path: string;
  exists(): boolean;
  isWritable(): boolean;
  isReadable(): boolean;
  isExecutable(): boolean;
  isHidden(): boolean;
  isDirectory(): boolean;
  isFile(): boolean;
  isSymlink(): boolean;
  isSpecial(): boolean;
  createUnique(type: number, permissions: number): void;
  clone(): nsIFile | null;
  equals(inFile: nsIFile | null): boolean;
  contains(inFile: nsIFile | null, recur: boolean): boolean;
  readonly parent: nsIFile | null;
  readonly directoryEntries: nsISimpleEnumerator | null;
  initWithPath(filePath: string | null): void;
  initWithFile(file: nsIFile | null): void;
  followLinks: boolean;
  readonly diskSpaceAvailable: number | bigint;
  appendRelativePath(relativeFilePath: string | null): void;
  get persistentDescriptor(): string;
  set persistentDescriptor(value: string | null);
  reveal(): void;
  launch(): void;
  getRelativeDescriptor(fromFile: nsIFile | null): string;
  setRelativeDescriptor(fromFile: nsIFile | null, relativeDesc: string | null): void;
}

interface nsILocalFile extends nsIFile {
}

interface nsIDirectoryService extends nsISupports {
  init(): void;
  registerProvider(prov: nsIDirectoryServiceProvider | nsScripted<nsIDirectoryServiceProvider> | null): void;
  unregisterProvider(prov: nsIDirectoryServiceProvider | nsScripted<nsIDirectoryServiceProvider> | null): void;
}

interface nsIDirectoryServiceProvider extends nsISupports {
  getFile(prop: string | null): { persistent: boolean; result: nsIFile | null };
}

interface nsIDirectoryServiceProvider2 extends nsIDirectoryServiceProvider {
  getFiles(prop: string | null): nsISimpleEnumerator | null;
}

interface nsIInputStream extends nsISupports {
  close(): void;
  available(): number;
  isNonBlocking(): boolean;
}

interface nsIOutputStream extends nsISupports {
  close(): void;
  flush(): void;
  write(buf: string, count: number): number;
  writeFrom(fromStream: nsIInputStream | null, count: number): number;
  isNonBlocking(): boolean;
}

interface nsIAsyncInputStream extends nsIInputStream {
  readonly WAIT_CLOSURE_ONLY: 1;
  closeWithStatus(status: number): void;
  asyncWait(callback: nsIInputStreamCallback | nsScripted<nsIInputStreamCallback> | nsIInputStreamCallback["onInputStreamReady"] | null, flags: number, requestedCount: number, eventTarget: nsIEventTarget | null): void;
}

interface nsIInputStreamCallback extends nsISupports {
  onInputStreamReady(stream: nsIAsyncInputStream | null): void;
}

interface nsIAsyncOutputStream extends nsIOutputStream {
  readonly WAIT_CLOSURE_ONLY: 1;
  closeWithStatus(reason: number): void;
  asyncWait(callback: nsIOutputStreamCallback | nsScripted<nsIOutputStreamCallback> | nsIOutputStreamCallback["onOutputStreamReady"] | null, flags: number, requestedCount: number, eventTarget: nsIEventTarget | null): void;
}

interface nsIOutputStreamCallback extends nsISupports {
  onOutputStreamReady(stream: nsIAsyncOutputStream | null): void;
}

interface nsIBinaryInputStream extends nsIInputStream {
  setInputStream(inputStream: nsIInputStream | null): void;
  readBoolean(): boolean;
  read8(): number;
  read16(): number;
  read32(): number;
  read64(): number | bigint;
  readFloat(): number;
  readDouble(): number;
  readCString(): string;
  readString(): string;
  readBytes(length: number): string;
  readByteArray(length: number): number[];
}

interface nsIBinaryOutputStream extends nsIOutputStream {
  setOutputStream(outputStream: nsIOutputStream | null): void;
  writeBoolean(boolean: boolean): void;
  write8(byte: number): void;
  write16(a16: number): void;
  write32(a32: number): void;
  write64(a64: number | bigint): void;
  writeFloat(float: number): void;
  writeDouble(double: number): void;
  writeStringZ(string: string | null): void;
  writeWStringZ(string: string | null): void;
  writeUtf8Z(string: string | null): void;
  writeBytes(string: string, length: number): void;
  writeByteArray(bytes: number[], length: number): void;
}

interface nsIPipe extends nsISupports {
  init(nonBlockingInput: boolean, nonBlockingOutput: boolean, segmentSize: number, segmentCount: number, segmentAllocator: nsIMemory | null): void;
  readonly inputStream: nsIAsyncInputStream | null;
  readonly outputStream: nsIAsyncOutputStream | null;
}

interface nsISearchableInputStream extends nsISupports {
  search(forString: string | null, ignoreCase: boolean): { found: boolean; offsetSearchedTo: number };
}

interface nsISeekableStream extends nsISupports {
  readonly NS_SEEK_SET: 0;
  readonly NS_SEEK_CUR: 1;
  readonly NS_SEEK_END: 2;
  seek(whence: number, offset: number | bigint): void;
  tell(): number | bigint;
  setEOF(): void;
}

interface nsIFileInputStream extends nsIInputStream {
  readonly DELETE_ON_CLOSE: 2;
  readonly CLOSE_ON_EOF: 4;
  readonly REOPEN_ON_REWIND: 8;
  readonly DEFER_OPEN: 16;
  init(file: nsIFile | null, ioFlags: number, perm: number, behaviorFlags: number): void;
}

interface nsIFileOutputStream extends nsIOutputStream {
  readonly DEFER_OPEN: 1;
  init(file: nsIFile | null, ioFlags: number, perm: number, behaviorFlags: number): void;
}

interface nsISafeOutputStream extends nsISupports {
  finish(): void;
}

interface nsIStringInputStream extends nsIInputStream {
  setData(data: string, dataLen: number): void;
}

interface nsIURI extends nsISupports {
  get spec(): string;
  set spec(value: string | null);
  readonly prePath: string;
  get scheme(): string;
  set scheme(value: string | null);
  get userPass(): string;
  set userPass(value: string | null);
  get username(): string;
  set username(value: string | null);
  get password(): string;
  set password(value: string | null);
  get hostPort(): string;
  set hostPort(value: string | null);
  get host(): string;
  set host(value: string | null);
  port: number;
  get path(): string;
  set path(value: string | null);
  equals(other: nsIURI | null): boolean;
  schemeIs(scheme: string | null): boolean;
  clone(): nsIURI | null;
  resolve(relativePath: string | null): string;
  readonly asciiSpec: string;
  readonly asciiHost: string;
  readonly originCharset: string;
  get ref(): string;
  set ref(value: string | null);
  equalsExceptRef(other: nsIURI | null): boolean;
  cloneIgnoringRef(): nsIURI | null;
  readonly specIgnoringRef: string;
  readonly hasRef: boolean;
}

interface nsIURL extends nsIURI {
  get filePath(): string;
  set filePath(value: string | null);
  get query(): string;
  set query(value: string | null);
  get directory(): string;
  set directory(value: string | null);
  get fileName(): string;
  set fileName(value: string | null);
  get fileBaseName(): string;
  set fileBaseName(value: string | null);
  get fileExtension(): string;
  set fileExtension(value: string | null);
  getCommonBaseSpec(uriToCompare: nsIURI | null): string;
  getRelativeSpec(uriToCompare: nsIURI | null): string;
}

interface nsIFileURL extends nsIURL {
  file: nsIFile | null;
}

interface nsIIOService extends nsISupports {
  getProtocolHandler(scheme: string | null): nsIProtocolHandler | null;
  getProtocolFlags(scheme: string | null): number;
  newURI(spec: string | null, originCharset: string | null, baseURI: nsIURI | null): nsIURI | null;
  newFileURI(file: nsIFile | null): nsIURI | null;
  newChannelFromURI(uri: nsIURI | null): nsIChannel | null;
  newChannel(spec: string | null, originCharset: string | null, baseURI: nsIURI | null): nsIChannel | null;
  offline: boolean;
  allowPort(port: number, scheme: string | null): boolean;
  extractScheme(urlString: string | null): string;
}

interface nsIIOService2 extends nsIIOService {
  manageOfflineStatus: boolean;
  newChannelFromURIWithProxyFlags(uri: nsIURI | null, proxyURI: nsIURI | null, proxyFlags: number): nsIChannel | null;
}

interface nsIProtocolHandler extends nsISupports {
  readonly URI_STD: 0;
  readonly URI_NORELATIVE: 1;
  readonly URI_NOAUTH: 2;
  readonly URI_INHERITS_SECURITY_CONTEXT: 16;
  readonly URI_FORBIDS_AUTOMATIC_DOCUMENT_REPLACEMENT: 32;
  readonly URI_LOADABLE_BY_ANYONE: 64;
  readonly URI_DANGEROUS_TO_LOAD: 128;
  readonly URI_IS_UI_RESOURCE: 256;
  readonly URI_IS_LOCAL_FILE: 512;
  readonly URI_LOADABLE_BY_SUBSUMERS: 16384;
  readonly URI_NON_PERSISTABLE: 1024;
  readonly URI_DOES_NOT_RETURN_DATA: 2048;
  readonly URI_IS_LOCAL_RESOURCE: 4096;
  readonly URI_OPENING_EXECUTES_SCRIPT: 8192;
  readonly URI_SYNC_LOAD_IS_OK: 32768;
  readonly ALLOWS_PROXY: 4;
  readonly ALLOWS_PROXY_HTTP: 8;
  readonly URI_FORBIDS_COOKIE_ACCESS: 32768;
  readonly scheme: string;
  readonly defaultPort: number;
  readonly protocolFlags: number;
  newURI(spec: string | null, originCharset: string | null, baseURI: nsIURI | null): nsIURI | null;
  newChannel(uri: nsIURI | null): nsIChannel | null;
  allowPort(port: number, scheme: string | null): boolean;
}

interface nsIFileProtocolHandler extends nsIProtocolHandler {
  newFileURI(file: nsIFile | null): nsIURI | null;
  getURLSpecFromFile(file: nsIFile | null): string;
  getURLSpecFromActualFile(file: nsIFile | null): string;
  getURLSpecFromDir(file: nsIFile | null): string;
  getFileFromURLSpec(url: string | null): nsIFile | null;
  readURLFile(file: nsIFile | null): nsIURI | null;
}

interface nsIRequest extends nsISupports {
  readonly LOAD_REQUESTMASK: 65535;
  readonly LOAD_NORMAL: 0;
  readonly LOAD_BACKGROUND: 1;
  readonly INHIBIT_PIPELINE: 64;
  readonly INHIBIT_CACHING: 128;
  readonly INHIBIT_PERSISTENT_CACHING: 256;
  readonly LOAD_BYPASS_CACHE: 512;
  readonly LOAD_FROM_CACHE: 1024;
  readonly VALIDATE_ALWAYS: 2048;
  readonly VALIDATE_NEVER: 4096;
  readonly VALIDATE_ONCE_PER_SESSION: 8192;
  readonly LOAD_ANONYMOUS: 16384;
  readonly LOAD_FRESH_CONNECTION: 32768;
  readonly name: string;
  isPending(): boolean;
  readonly status: number;
  cancel(status: number): void;
  suspend(): void;
  resume(): void;
  loadGroup: nsILoadGroup | null;
  loadFlags: number;
}

interface nsIRequestObserver extends nsISupports {
  onStartRequest(request: nsIRequest | null, context: nsISupports | null): void;
  onStopRequest(request: nsIRequest | null, context: nsISupports | null, statusCode: number): void;
}

interface nsIStreamListener extends nsIRequestObserver {
  onDataAvailable(request: nsIRequest | null, context: nsISupports | null, inputStream: nsIInputStream | null, offset: number, count: number): void;
}

interface nsIChannel extends nsIRequest {
  readonly LOAD_DOCUMENT_URI: 65536;
  readonly LOAD_RETARGETED_DOCUMENT_URI: 131072;
  readonly LOAD_REPLACE: 262144;
  readonly LOAD_INITIAL_DOCUMENT_URI: 524288;
  readonly LOAD_TARGETED: 1048576;
  readonly LOAD_CALL_CONTENT_SNIFFERS: 2097152;
  readonly LOAD_CLASSIFY_URI: 4194304;
  readonly DISPOSITION_INLINE: 0;
  readonly DISPOSITION_ATTACHMENT: 1;
  originalURI: nsIURI | null;
  readonly URI: nsIURI | null;
  owner: nsISupports | null;
  notificationCallbacks: nsIInterfaceRequestor | null;
  readonly securityInfo: nsISupports | null;
  get contentType(): string;
  set contentType(value: string | null);
  get contentCharset(): string;
  set contentCharset(value: string | null);
  contentLength: number;
  open(): nsIInputStream | null;
  asyncOpen(listener: nsIStreamListener | nsScripted<nsIStreamListener> | null, context: nsISupports | null): void;
  readonly contentDisposition: number;
  readonly contentDispositionFilename: string;
  readonly contentDispositionHeader: string;
}

interface nsILoadGroup extends nsIRequest {
  groupObserver: nsIRequestObserver | null;
  defaultLoadRequest: nsIRequest | null;
  addRequest(request: nsIRequest | null, context: nsISupports | null): void;
  removeRequest(request: nsIRequest | null, context: nsISupports | null, status: number): void;
  readonly requests: nsISimpleEnumerator | null;
  readonly activeCount: number;
  notificationCallbacks: nsIInterfaceRequestor | null;
}

interface nsINetworkLinkService extends nsISupports {
  readonly LINK_TYPE_UNKNOWN: 0;
  readonly LINK_TYPE_ETHERNET: 1;
  readonly LINK_TYPE_USB: 2;
  readonly LINK_TYPE_WIFI: 3;
  readonly LINK_TYPE_WIMAX: 4;
  readonly LINK_TYPE_2G: 5;
  readonly LINK_TYPE_3G: 6;
  readonly LINK_TYPE_4G: 7;
  readonly isLinkUp: boolean;
  readonly linkStatusKnown: boolean;
  readonly linkType: number;
}

interface nsICharsetConverterManager extends nsISupports {
  getCharsetAlias(charset: string | null): string;
  getDecoderList(): nsIUTF8StringEnumerator | null;
  getEncoderList(): nsIUTF8StringEnumerator | null;
  GetCharsetDetectorList(): nsIUTF8StringEnumerator | null;
  getCharsetTitle(charset: string | null): string;
  getCharsetData(charset: string | null, prop: string | null): string;
}

interface nsIFontEnumerator extends nsISupports {
  EnumerateAllFonts(): string[];
  EnumerateFonts(langGroup: string | null, generic: string | null): string[];
  HaveFontFor(langGroup: string | null): boolean;
  getDefaultFont(langGroup: string | null, generic: string | null): string | null;
  updateFontList(): boolean;
  getStandardFamilyName(name: string | null): string | null;
}

interface nsICrashReporter extends nsISupports {
  enabled: boolean;
  serverURL: nsIURL | null;
  minidumpPath: nsILocalFile | null;
  annotateCrashReport(key: string | null, data: string | null): void;
  appendAppNotesToCrashReport(data: string | null): void;
  registerAppMemory(ptr: number | bigint, size: number | bigint): void;
  submitReports: boolean;
}

interface nsIXULRuntime extends nsISupports {
  readonly PROCESS_TYPE_DEFAULT: 0;
  readonly PROCESS_TYPE_PLUGIN: 1;
  readonly PROCESS_TYPE_CONTENT: 2;
  readonly PROCESS_TYPE_IPDLUNITTEST: 3;
  readonly inSafeMode: boolean;
  logConsoleErrors: boolean;
  readonly OS: string;
  readonly XPCOMABI: string;
  readonly widgetToolkit: string;
  readonly processType: number;
  invalidateCachesOnRestart(): void;
  ensureContentProcess(): void;
  readonly replacedLockTime: number | bigint;
}

interface nsIXULAppInfo extends nsISupports {
  readonly vendor: string;
  readonly name: string;
  readonly ID: string;
  readonly version: string;
  readonly appBuildID: string;
  readonly platformVersion: string;
  readonly platformBuildID: string;
}

interface nsIAppStartup extends nsISupports {
  readonly eConsiderQuit: 1;
  readonly eAttemptQuit: 2;
  readonly eForceQuit: 3;
  readonly eRestart: 16;
  readonly eRestarti386: 32;
  readonly eRestartx86_64: 64;
  createHiddenWindow(): void;
  destroyHiddenWindow(): void;
  run(): void;
  enterLastWindowClosingSurvivalArea(): void;
  exitLastWindowClosingSurvivalArea(): void;
  readonly automaticSafeModeNecessary: boolean;
  restartInSafeMode(quitMode: number): void;
  trackStartupCrashBegin(): boolean;
  trackStartupCrashEnd(): void;
  quit(mode: number): void;
  readonly shuttingDown: boolean;
  interrupted: boolean;
}

interface nsIBaseWindow extends nsISupports {
  create(): void;
  destroy(): void;
  setPosition(x: number, y: number): void;
  getPosition(): { x: number; y: number };
  setSize(cx: number, cy: number, fRepaint: boolean): void;
  getSize(): { cx: number; cy: number };
  setPositionAndSize(x: number, y: number, cx: number, cy: number, fRepaint: boolean): void;
  getPositionAndSize(): { x: number; y: number; cx: number; cy: number };
  repaint(force: boolean): void;
  visibility: boolean;
  enabled: boolean;
  setFocus(): void;
  title: string | null;
}

interface nsIXULWindow extends nsISupports {
  readonly lowestZ: 0;
  readonly loweredZ: 4;
  readonly normalZ: 5;
  readonly raisedZ: 6;
  readonly highestZ: 9;
  intrinsicallySized: boolean;
  addChildWindow(child: nsIXULWindow | null): void;
  removeChildWindow(child: nsIXULWindow | null): void;
  center(relative: nsIXULWindow | null, screen: boolean, alert: boolean): void;
  showModal(): void;
  zLevel: number;
  contextFlags: number;
  chromeFlags: number;
  assumeChromeFlagsAreFrozen(): void;
  createNewWindow(chromeFlags: number): nsIXULWindow | null;
}

interface nsIAppShellService extends nsISupports {
  readonly SIZE_TO_CONTENT: -1;
  createTopLevelWindow(parent: nsIXULWindow | null, url: nsIURI | null, chromeMask: number, initialWidth: number, initialHeight: number): nsIXULWindow | null;
  destroyHiddenWindow(): void;
  readonly hiddenWindow: nsIXULWindow | null;
  readonly hiddenDOMWindow: any;
  readonly applicationProvidedHiddenWindow: boolean;
  registerTopLevelWindow(window: nsIXULWindow | null): void;
  unregisterTopLevelWindow(window: nsIXULWindow | null): void;
}

interface nsIWindowMediator extends nsISupports {
  readonly zLevelTop: 1;
  readonly zLevelBottom: 2;
  readonly zLevelBelow: 3;
  getEnumerator(windowType: string | null): nsISimpleEnumerator | null;
  getXULWindowEnumerator(windowType: string | null): nsISimpleEnumerator | null;
  getZOrderDOMWindowEnumerator(windowType: string | null, frontToBack: boolean): nsISimpleEnumerator | null;
  getZOrderXULWindowEnumerator(windowType: string | null, frontToBack: boolean): nsISimpleEnumerator | null;
  getMostRecentWindow(windowType: string | null): any;
}

/**
 * "@vorel/digitaltvservice;1". A value: nothing is checked or converted, a new object is all zero
 * and empty. Objects have no lock: one thread at a time.
 */
interface nsIDigitalTvService extends nsISupports {
  /** UTF-8. */
  get name(): string;
  set name(value: string | null);
  /** The frequency to tune to, in kHz. */
  frequency: number;
  /** The width of the channel, in MHz. */
  bandwidth: number;
  /** The number of the service in its transport stream. */
  serviceId: number;
  /**
   * The signal's strength when the service was found, in the unit of the receiver. 0 for a service
   * that was read from the channels file.
   */
  level: number;
  /**
   * The signal's quality when the service was found, in the unit of the receiver. 0 for a service
   * that was read from the channels file.
   */
  quality: number;
  /** Who broadcasts it, UTF-8. */
  get provider(): string;
  set provider(value: string | null);
  /**
   * A new array at each call, of nsIDigitalTvAudioChannel; the channels in it are the service's
   * own objects. Null, and success, for a service that was given no list. Fails when no array can
   * be made.
   * Setting: Keeps the elements, not the array. Null leaves the service without a list. When it fails, the
   * service keeps the list that it had.
   */
  audioChannels: nsIArray;
  /** The PID of the first video stream; 0 for none, as for radio. */
  videoPid: number;
  /** The PID on which the service's program map is sent; 0 for none. */
  pmtPid: number;
}

/**
 * "@vorel/bdascanresultdigitaltvservice;1". What a scan finds and what the channels file keeps.
 * All numbers are 0 in a new object, and none is checked.
 */
interface nsIBDAScanResultDigitalTvService extends nsIDigitalTvService {
  /** Of the high priority stream: 0 is 1/2, 1 is 2/3, 2 is 3/4, 3 is 5/6, 4 is 7/8, 5 is automatic. */
  codeRateHP: number;
  /** Of the low priority stream, in the same coding. */
  codeRateLP: number;
  /** 0 is QPSK, 1 is 16-QAM, 2 is 64-QAM, 3 is automatic. */
  constellation: number;
  /** 0 is 2K, 1 is 8K, other values are automatic. */
  transmissionMode: number;
  /** 0 is none, other values are automatic. */
  hierarchy: number;
  /**
   * 0 is 1/32, 1 is 1/16, 2 is 1/8, 3 is 1/4, 4 is automatic. The channels file has no place for
   * it: it is 0 in a service that was read from there.
   */
  guardInterval: number;
  /**
   * After a scan the priority bit of the terrestrial delivery descriptor. The channels file writes
   * this attribute, not the guard interval, as its guard interval, 0 to 4 as told there, and reads
   * it back into here.
   */
  priority: number;
}

/**
 * "@vorel/digitaltvaudiochannel;1". A plain value: nothing is checked or converted. Any thread,
 * one at a time.
 */
interface nsIDigitalTvAudioChannel extends nsISupports {
  readonly AUDIO_MPEG: 4;
  readonly AUDIO_AC3: 106;
  readonly AUDIO_EAC3: 122;
  /**
   * Three letters of ISO 639-2, as they are broadcast: "fra". Empty when the broadcast names none,
   * and in a new object.
   */
  get language(): string;
  set language(value: string | null);
  /** The PID of the elementary stream, 0 to 8191. 0 in a new object. */
  pid: number;
  /** One of AUDIO_... 0 in a new object. */
  type: number;
}

/** Hears of an inspection, on the main thread. */
interface nsIDigitalTvInspectorListener extends nsISupports {
  /** Some ten times a second. aTotal is 0 when the size is not known. */
  onProgress(done: number | bigint, total: number | bigint): void;
  /** The end. With NS_OK aReport is JSON; with a failure it says what could not be read. */
  onInspected(status: number, report: string): void;
}

/** Main thread. */
interface nsIDigitalTvInspector extends nsISupports {
  /**
   * Reads a transport stream, "-" for the standard input, and reports what a scan would find in it
   * and what is broken. Returns at once; reading goes on on a thread of its own, until the
   * inspector is dropped. NS_ERROR_IN_PROGRESS while another is read, NS_ERROR_NULL_POINTER
   * without a listener.
   */
  inspectStream(path: string | null, listener: nsIDigitalTvInspectorListener | nsScripted<nsIDigitalTvInspectorListener> | null): void;
  /**
   * What a channels file holds, and what is wrong with it line by line, as JSON.
   * NS_ERROR_FILE_NOT_FOUND, or another failure, for a file that can't be read.
   */
  checkChannels(path: string | null): string;
  /** The countries that a scan knows, as JSON. */
  listCountries(): string;
}

/**
 * Init, then StartWatching; the listener hears of the rest. All on one thread, the one that calls
 * StartWatching, and it must run an event loop: reports come through it.
 */
interface nsISystemFileSystemWatcher extends nsISupports {
  /**
   * aRootURL is a "file:" URL; the directory need not exist yet. aIsRecursive is taken and not
   * used: all watchers are recursive. Fails with the resolver's result for a URL that no file can
   * be made of.
   */
  init(listener: nsISystemFileSystemListener | nsScripted<nsISystemFileSystemListener> | null, rootURL: string | null, isRecursive: boolean): void;
  /**
   * Returns before the watch stands: OnWatcherStarted says that it does, OnWatcherError that it
   * can't. A second call on a standing watch succeeds and does nothing.
   */
  startWatching(): void;
  /**
   * OnWatcherStopped has been called when this returns. Without a standing watch it succeeds and
   * does nothing.
   */
  stopWatching(): void;
  /** False during the first walk through the directory. */
  readonly isWatching: boolean;
  /** The absolute path of the root, with the platform's separators. */
  readonly watchPath: string;
  readonly isSupported: boolean;
}

/**
 * What script sees of a watcher; adds nothing to it. The constructor takes one object:
 *
 *   rootPath   string, required: the root, a URL, absolute or relative to the document
 *   listener   object: implements nsISystemFileSystemListener, and ...2 if it wants moves
 *   recursive  boolean: taken and without effect, all watchers are recursive
 *   document   object: a document in place of the script's own
 *   exclude    text or array of texts: patterns; what fits, and all below it, is not told
 *   only       text or array of texts: patterns; nothing else is told
 *   settle     number, whole milliseconds: a change is told once nothing more has happened to the
 *              same path for this time
 *   since      text: what differs from what the last watch of the root with this name has left in
 *              the profile is told first
 *
 * of which nsFileSystemWatcherOptions tells more. NS_ERROR_INVALID_ARG when one of the last four
 * is there and wrong; other keys are ignored.
 *
 * Without a listener StartWatching succeeds and does nothing. The watch ends with the document.
 * Main thread only.
 */
interface nsIFileSystemWatcher extends nsISystemFileSystemWatcher {
}

/**
 * "@vorel/isocountry;1". A plain value: nothing is checked, both are empty in a new object. Any
 * thread, one at a time.
 */
interface nsIIsoCountry extends nsISupports {
  /**
   * ISO 3166 in capitals: "FR". Four regions of satellites have codes of their own, of up to five
   * letters.
   */
  get code(): string;
  set code(value: string | null);
  /** In English, with one capital: "United kingdom". */
  get name(): string;
  set name(value: string | null);
}

/** Hears of the end, on the main thread. */
interface nsIStreamOutputListener extends nsISupports {
  /**
   * NS_OK: the stream has ended. NS_BASE_STREAM_CLOSED: nobody reads the standard output any more.
   * Other failures are those of reading or writing.
   */
  onEnded(status: number): void;
}

/** Main thread. */
interface nsIStreamOutput extends nsISupports {
  /**
   * Writes what comes out of a blocking stream to the standard output, on a thread of its own.
   * Returns at once. It goes on until the stream ends or this object is dropped, which closes the
   * stream. NS_ERROR_IN_PROGRESS the second time, NS_ERROR_NULL_POINTER without a stream or a
   * listener.
   */
  start(stream: nsIInputStream | null, listener: nsIStreamOutputListener | nsScripted<nsIStreamOutputListener> | null): void;
  /** How many bytes have been written. */
  readonly written: number | bigint;
}

/**
 * What all adapters have in common. Each kind has an interface that derives from this one.
 *
 * What is told here is set before the manager publishes the adapter and does not change after
 * that. The count is atomic, and these operations may be called on any thread.
 */
interface nsISystemAdapter extends nsISupports {
  /**
   * What identifies the adapter to the system, in a form of its kind: "COM3" for a serial port.
   * Empty for directories and volumes.
   */
  readonly sysPath: string;
  /** The text for people, "Port serie COM3". May be empty. */
  readonly label: string;
  /**
   * A new array of its nsISystemConnector, in the order in which they were found; empty when there
   * is none. Fails as making an array fails.
   */
  readonly connectors: nsIArray;
  /** A new array, always empty. */
  readonly attachedObjects: nsIArray;
  /** Null, and success, for an adapter that belongs to no device. */
  readonly device: nsISystemDevice | null;
}

/**
 * The order of things: supportedCountries, startScan, getScanProgress until the state is not 0,
 * servicesFoundByScan, a choice of them into services, then selectChannelByName and stream. Main
 * thread; calls may come while a scan runs.
 *
 * Services that were stored go through the channels file and come back as it gives them
 * (docs/channels-file.md).
 */
interface nsISystemAdapterDigitalTvReceiver extends nsISystemAdapter {
  /** 0 is satellite, 1 cable, 2 terrestrial, 3 ATSC; other values are unknown. */
  readonly deliverySystem: number;
  /**
   * A new array of nsIIsoCountry: those whose frequencies the platform knows. NS_ERROR_FAILURE for
   * a receiver that could not be set up, as with the other lists.
   */
  readonly supportedCountries: nsIArray;
  /**
   * A new array of nsIDigitalTvService: what the last scan found, or the running one has found so
   * far.
   */
  readonly servicesFoundByScan: nsIArray;
  /**
   * A new array of nsIDigitalTvService: the stored services. Reads the channels file when that has
   * changed; the failure to read it is returned.
   * Setting: Stores a list, in memory and in the channels file. NS_ERROR_FAILURE, with nothing changed,
   * when two services have the same name but for the case of letters; NS_ERROR_FAILURE for an
   * element that is no service.
   */
  services: nsIArray;
  /** Whether the tuner has a signal that it can decode. Returns the platform's failure. */
  readonly locked: boolean;
  /**
   * The signal's strength in thousandths of a decibel; more is stronger. Over one milliwatt where
   * the tuner measures that, -50000 is a common one; else from -100000 to 0 of a scale of its own.
   * -1 and NS_ERROR_FAILURE when the tuner does not tell.
   */
  readonly level: number;
  /** The signal's quality in percent. A success that leaves it as it is: the tuner does not tell. */
  readonly quality: number;
  /**
   * The stream of the selected service: whole transport packets of 188 bytes. Null before the
   * first selection; the same object until the next one.
   */
  readonly stream: nsIInputStream | null;
  /**
   * Begins a scan of a country's frequencies and returns at once. NS_ERROR_FAILURE while a scan is
   * running, or when the receiver can't be started; NS_ERROR_NOT_AVAILABLE when one that was
   * stopped has not ended yet.
   */
  startScan(country: nsIIsoCountry | null): void;
  /**
   * Asks a running scan to end; without one nothing happens. Returns at once, the state tells the
   * end.
   */
  stopScan(): void;
  /**
   * aState: 1 idle, or the last scan came to its end; 0 a scan is running; -1 it could not be
   * started; -2 it was stopped. Then how many frequencies there are, how many have been passed, on
   * how many there was a signal, and how many services have been found.
   */
  getScanProgress(): { state: number; total: number; done: number; locked: number; found: number };
  /**
   * Tunes to a stored service, whose name is compared without regard to case, and makes a new
   * stream of its picture and of the sound in a language; the last channel of that language, the
   * first channel of all for an empty one, and no sound when there is none. aReserved is ignored.
   * NS_ERROR_FAILURE for an unknown name and without a signal; waits for a signal up to one
   * second.
   */
  selectChannelByName(name: string | null, language: string | null, reserved: number): void;
}

/**
 * Each output with a display has two of these. The live adapter stands in the manager's list and
 * tells what is in force; a change is made at once, and stored. The registered view, which the
 * live adapter hands out, reads and writes what is stored: a change there leaves the screen alone
 * until the next reset, which is the next session of the display server.
 *
 * The system path is the output's name in the system ("\\.\DISPLAY1"), and the label names the
 * display for people.
 *
 * What an adapter tells is read on first use and then kept: the live adapter's is renewed when the
 * displays change, a view's is not. Main thread, except that GetRegistered, power mode, position
 * and rotation may be used from any.
 *
 * A reading that fails is NS_ERROR_FAILURE for the operation that caused it; from then on numbers
 * are 0, lists are empty, and position and mode are null. A change that the machine refuses is
 * NS_ERROR_FAILURE, with nothing changed.
 */
interface nsISystemAdapterDisplayOutput extends nsISystemAdapter {
  /** The registered view, always the same one. A view has a further one of its own. */
  readonly registered: nsISystemAdapterDisplayOutput | null;
  /** 1: on. Setting it does nothing, and succeeds: there is no link to the display for it. */
  powerMode: number;
  /**
   * A clone; null, and success, when it could not be read. NS_ERROR_INVALID_ARG for null. The
   * object that was set is kept, and is not to be changed after that.
   */
  position: nsISystemDisplayPosition | null;
  /**
   * Degrees by which the picture is turned counter-clockwise: 0, 90, 180 or 270. Anything else
   * that is set turns it back to 0.
   */
  rotation: number;
  bitsPerPixel: number;
  /** 0, or what was last set; it means nothing. */
  portType: number;
  /**
   * Percent; 0 where the display does not tell. NS_ERROR_FAILURE above 100; a contrast that is
   * what it was is always a success.
   */
  brightness: number;
  contrast: number;
  /** Leaves the output as it is, and succeeds. */
  readonly gammas: nsISupports | null;
  /**
   * The mode in force; null, and success, when it could not be read. What is set must equal one of
   * the list: NS_ERROR_FAILURE.
   */
  displayMode: nsISystemDisplayMode | null;
  /** A new array of nsISystemDisplayMode. */
  readonly displayModesList: nsIArray;
  /**
   * New arrays, to be freed with NS_Free. Where the machine tells which rotations it is capable
   * of, 0 is not listed.
   */
  getRotationsList(): number[];
  getBitsPerPixelList(): number[];
  getPortTypesList(): number[];
}

/**
 * Each interface has two of these. The live adapter stands in the manager's list and tells what is
 * in force; it refuses changes with NS_ERROR_NOT_IMPLEMENTED. The registered view, which the live
 * adapter hands out, reads and writes what is configured. Writing makes nothing come into force:
 * that takes a restart of the network's service or of the machine.
 *
 * The system path is the interface's name in the system, and the label its friendly name.
 *
 * The live adapter is renewed by discovery on the main thread, and is to be read there. A view may
 * be used from any thread. Addresses are handed out as clones or in new arrays, unless told
 * otherwise. In a view, a key or a value that is missing or can't be written is NS_ERROR_FAILURE.
 *
 * Places without a name are reserved: NS_ERROR_NOT_IMPLEMENTED.
 */
interface nsISystemAdapterIP extends nsISystemAdapter {
  /**
   * The registered view, always the same one; of a view, itself. It answers to what this adapter
   * answers to.
   */
  readonly registered: nsISystemAdapter | null;
  /** What the interface is, for people: its driver or product. */
  readonly description: string;
  /** The number assigned by IANA: 6 Ethernet, 71 wireless, 1 other. 0 in a view. */
  readonly interfaceType: number;
  /** 1 up, 2 down, 3 testing, 4 unknown, 5 dormant, 6 not present, 7 lower layer down. 0 in a view. */
  readonly operStatus: number;
  /** Null, and success, when there is none. */
  readonly macAddress: nsISystemMACStructure | null;
  /**
   * In bits a second; 0 when not known. A view has the speeds, and the next two, of the moment
   * when it was made.
   */
  readonly transmitLinkSpeed: number | bigint;
  readonly receiveLinkSpeed: number | bigint;
  readonly isIpv4Enabled: boolean;
  readonly isIpv6Enabled: boolean;
  /** 0 in a view. */
  readonly ipv6InterfaceIndex: number;
  /** 0. */
  readonly reservedCounterA: number | bigint;
  readonly reservedCounterB: number | bigint;
  /** The server of the last lease, read once a view; null, and success, of a live adapter. */
  readonly dhcpv4Server: nsISystemIPv4Structure | null;
  /** Null, and success. */
  readonly dhcpv6Server: nsISystemIPv6Structure | null;
  /** Whether the addresses come from a server. */
  isDhcpv4Enabled: boolean;
  /**
   * Configures address, netmask and gateway, and the gateway's metric unless that is -1, in this
   * order; what was written before a failure stays. A null argument is NS_ERROR_INVALID_ARG, also
   * on a live adapter. Does not turn DHCP off.
   */
  setIpv4Address(address: nsISystemIPStructure | null, netmask: nsISystemIPStructure | null, gateway: nsISystemIPStructure | null, metric: number): void;
  /** False in a view. */
  readonly isDhcpv6Enabled: boolean;
  /**
   * A new array of nsISystemIPAddress. A view has the first configured IPv4 address, or that of
   * the last lease when DHCP is on.
   */
  readonly unicastAddresses: nsIArray;
  /** The first that is IPv4, itself and no clone. NS_ERROR_FAILURE when there is none. */
  readonly firstIpv4Address: nsISystemIPAddress | null;
  /** New arrays of nsISystemIPStructure, empty in a view. */
  readonly anycastAddresses: nsIArray;
  readonly multicastAddresses: nsIArray;
  /**
   * Whether the DNS servers come with the lease, that is, whether none is configured. A live
   * adapter leaves the output as it is, and succeeds.
   * Setting: True takes the configured servers away; false changes nothing.
   */
  isDnsDhcpEnabled: boolean;
  /** Configures DNS servers; either may be null. With both null none is configured. */
  setDns(primary: nsISystemIPStructure | null, secondary: nsISystemIPStructure | null): void;
  /** The first two DNS servers; an output for which there is none stays as it is. */
  getDns(): { primary: nsISystemIPStructure | null; secondary: nsISystemIPStructure | null };
  /** A new array of nsISystemIPStructure, in the order in which they are asked. */
  readonly dnsServers: nsIArray;
  /**
   * A new array of nsISystemIPStructure, by rising metric. A live adapter without a gateway has
   * the one entry 0.0.0.0, a view has one at most.
   */
  readonly gatewayAddresses: nsIArray;
  /** NS_ERROR_FAILURE when there is none. */
  readonly firstIpv4Gateway: nsISystemIPv4Structure | null;
  /** False. */
  readonly isAlwaysFalse: boolean;
  /** Does nothing, and succeeds. */
  setIgnored(ignored: number): void;
  /**
   * One below the number that the system's configuration has; 3 when that says nothing. The system
   * has one for all interfaces; a live adapter has what was last set on it.
   */
  igmpVersion: number;
}

/** Has no operations of its own: it marks the adapter. */
interface nsISystemAdapterLAN extends nsISystemAdapterIP {
}

/**
 * Given to nsISystemManager::AddAdapterListener. Called on the main thread, in the order of
 * registration, while the call that made the change waits. Results are ignored: a listener that
 * fails disturbs nobody.
 *
 * A listener may add and remove listeners. One that is added is called in the same round; one that
 * removes itself makes the round skip the listener after it.
 */
interface nsISystemAdapterListener extends nsISupports {
  /** The adapter is in the list. Its bindings are not made yet. */
  onAdapterAdded(adapter: nsISystemAdapter | null): void;
  /** The adapter is out of the list. Its bindings still are in theirs, and go next. */
  onAdapterRemoved(adapter: nsISystemAdapter | null): void;
  /** What the adapter reports has changed. */
  onAdapterChanged(adapter: nsISystemAdapter | null): void;
}

/**
 * Set it up, Open it, use its streams and lines, Close it. The system path is the port's name,
 * "COM3".
 *
 * Mode 1, the default, is for a thread that may wait: reads and writes wait as the time-out says,
 * and nobody is told of anything. Mode 2 is for the main thread: reads take what is there, a
 * worker listens to the port, calls the listeners and those that wait on the streams.
 *
 * Unless told otherwise an operation may be called from any thread, and answers
 * NS_ERROR_NOT_INITIALIZED while the port is closed where "open" stands in its description. A
 * failure of the system in an operation on lines is NS_ERROR_FAILURE. Places without a name are
 * reserved.
 */
interface nsISystemAdapterSerial extends nsISystemAdapter {
  /** 0x127 for every port. */
  readonly capabilities: number;
  /**
   * Settings for the next Open; nothing is checked here, and what the port can't do is logged then
   * and left as it was. Not to be called while another thread opens the port.
   *
   * aAccess: 1 for reading, 2 for writing, 3 for both. aBaudRate in bits a second, one of the
   * usual ones up to 256000. aCharSize: data bits, 5 to 8. aParity: 256 none; 512 odd, 1024 even,
   * 2048 mark, 4096 space turn the check on, of the parity that the line is set to already.
   * aStopBits: 0 one, 1 one and a half, 2 two. aFlowControl: 0 none, 1 RTS and CTS, 2 XON and
   * XOFF.
   */
  setParameters(access: number, baudRate: number, charSize: number, parity: number, stopBits: number, flowControl: number): void;
  /** What was set, also what the port refused. At first 3, 9600, 8, 256, 0, 0. */
  getParameters(): { access: number; baudRate: number; charSize: number; parity: number; stopBits: number; flowControl: number };
  /** Open. A break of that length; returns after it. Other operations of the port wait meanwhile. */
  sendBreak(microseconds: number): void;
  /**
   * Open. Gives what SetBREAK has set, and answers NS_ERROR_NOT_IMPLEMENTED all the same: kept as
   * it stands.
   * Setting: Open. A break begins, or ends.
   */
  BREAK: boolean;
  /** Open. Data carrier detect, an input; false also when the line can't be read. */
  readonly DCD: boolean;
  /** Open. Clear to send, likewise. */
  readonly CTS: boolean;
  /** Open. Data set ready, likewise. */
  readonly DSR: boolean;
  /**
   * Open. What Open has made of the output: true. SetDTR does not change it: kept as it stands.
   * Setting: Open. Data terminal ready, an output.
   */
  DTR: boolean;
  /** Open. The ring indicator, an input; false also when the line can't be read. */
  readonly RING: boolean;
  /**
   * Open. What Open remembers of the output: false. SetRTS does not change it: kept as it stands.
   * Setting: Open. Request to send, an output.
   */
  RTS: boolean;
  /**
   * Open. Whether everything written has left the port's queue; true also when that can't be read,
   * with NS_ERROR_FAILURE.
   */
  readonly isTQEmpty: boolean;
  /** Open. Does nothing, and succeeds. */
  drainTQ(): void;
  /**
   * For ports in mode 2. Listeners stay over Close and Open. One that is added twice is called
   * twice. While the port is open, all that is told is told at once. NS_ERROR_FAILURE when an open
   * port can't be made to listen to its lines; the listener is added nevertheless. Don't call it
   * on a port that is open in mode 1.
   */
  addListener(listener: nsISystemSerialListener | nsScripted<nsISystemSerialListener> | null): void;
  /** Success also for one that is not there. */
  removeListener(listener: nsISystemSerialListener | nsScripted<nsISystemSerialListener> | null): void;
  /** Whether the streams say that they block; they do in mode 1. True at first. */
  isBlocking: boolean;
  /** A number that is kept, and has no use. */
  reservedValue: number;
  /**
   * For mode 1, in ms, from the next Open on: how long a read waits for all of its bytes and for
   * the next one, and a write for its end. 0, the default: without limit. 0xFFFFFFFF: a read takes
   * what is there.
   */
  timeout: number;
  /** 1 or 2; NS_ERROR_FAILURE for others. To be set before Open. */
  mode: number;
  /**
   * Open. Always the same one, which is an nsIBinaryInputStream too. Hold it as long as the port
   * is used: the stream closes when its last user lets go of it, till the next Open.
   *
   * Numbers are big-endian. In mode 2 a read takes as many bytes as it is asked for, whether they
   * are there or not: ask for what Available says. ReadString fails on every text that is not
   * empty: kept as it stands. On a closed stream reads give no bytes.
   *
   * AsyncWait calls back at the next event of the port, once. Without a target it calls on the
   * worker's thread.
   */
  readonly inputStream: nsIAsyncInputStream | null;
  /**
   * Open. As GetInputStream, with nsIBinaryOutputStream. In mode 2 a write that is done at once
   * reports 0 bytes, so that everything but Write and WriteFrom fails after it has written: kept
   * as it stands. NS_BASE_STREAM_WOULD_BLOCK tells of a write that goes on.
   */
  readonly outputStream: nsIAsyncOutputStream | null;
  /**
   * NS_ERROR_FAILURE when the port is open. NS_ERROR_FILE_ACCESS_DENIED when it can't be opened:
   * it is not there, another program uses it, or the right is missing; the log says which.
   * NS_ERROR_FAILURE also when the port can't be listened to: it is open then and wants a Close.
   */
  open(): void;
  /**
   * Closes the streams and the port. Reads and writes of other threads fail; who waits on a stream
   * is not called. Success also for a port that is closed.
   */
  close(): void;
}

/**
 * A directory that the application works from, or the root of a removable volume. Those of volumes
 * have the device "mass-storage" and a connector "usb"; those of directories have neither.
 */
interface nsISystemAdapterStorage extends nsISystemAdapter {
  /**
   * A new file object at each call, which the caller may change. Null, and success, when the
   * adapter has got no directory: a volume is published before its directory is known. That the
   * directory exists, or still exists, is not asked.
   */
  readonly directory: nsIFile | null;
}

/** Marks the adapter. Its own places are reserved: NS_ERROR_NOT_IMPLEMENTED. */
interface nsISystemAdapterWLAN extends nsISystemAdapterIP {
}

/** Marks the adapter. Its own places are reserved: NS_ERROR_NOT_IMPLEMENTED. */
interface nsISystemAdapterWWAN extends nsISystemAdapterIP {
}

/**
 * An application profile. It lives through the bindings that say on which adapters it is in force.
 * Immutable; any thread.
 */
interface nsISystemApplicationProfile extends nsISupports {
  /**
   * The key of the preferences below "vorel.app-profile." and of the manager's look-up of
   * bindings.
   */
  readonly name: string;
  /** A longer text for people; empty for the profiles that the system makes. */
  readonly description: string;
  /** The text for people; equal to the name for the profiles that the system makes. */
  readonly label: string;
}

/**
 * Implemented by every binding class. Any component may bring one: the system finds it by its
 * contract ID in the category "vorel-application-profile-binding", makes one object for each
 * adapter and profile, calls Init and IsEnabled, and keeps it for as long as the adapter is known.
 * Main thread.
 */
interface nsISystemApplicationProfileBinding extends nsISupports {
  /**
   * Called once, first. aBranch is the part of the preferences that configures this profile on
   * such an adapter; it always has an "authorized", and the binding's own keys stand beside that.
   * A failure drops the binding without further notice.
   */
  init(adapter: nsISystemAdapter | null, applicationProfile: nsISystemApplicationProfile | null, branch: nsIPrefBranch | null): void;
  /** Asked right after Init; a binding that answers false, or fails, is dropped. */
  isEnabled(): boolean;
  /** The profile given to Init. The manager's look-up reads its name. */
  readonly applicationProfile: nsISystemApplicationProfile | null;
  /**
   * The adapter given to Init, the very object: when an adapter goes, its bindings are found by
   * comparing.
   */
  readonly adapter: nsISystemAdapter | null;
}

/**
 * One object a process. Main thread.
 *
 * A time is a text: month, day, hour and minute of two digits each, the year, a point, the seconds
 * of two digits. Five seconds after 15:04 on 2 January 2014 is "010215042014.05". Texts that are
 * read may leave out the point and the seconds, which are zero then.
 *
 * A zone is an Olson name, "Europe/Berlin".
 */
interface nsISystemClock extends nsISupports {
  /**
   * The zone that the machine is set to. A success that leaves the string as it is: the machine's
   * zone has no Olson name that could be found. NS_ERROR_FAILURE when the machine does not tell.
   * Setting: Sets the machine's zone, for all processes and for good. Running script sees it at once.
   * NS_ERROR_FAILURE for a name that is not known, that the machine has no definition of, or that
   * this process may not set; the zone stays as it was.
   */
  get timezone(): string;
  set timezone(value: string | null);
  /**
   * The time in the machine's zone.
   * Setting: Sets the clock. NS_ERROR_FAILURE for a text that is no time, a time that does not exist, or
   * without the right to do so; the clock stays as it was. Takes 10 ms.
   */
  get localTime(): string;
  set localTime(value: string | null);
  /**
   * The time in UTC.
   * Setting: As SetLocalTime, but takes no time.
   */
  get utcTime(): string;
  set utcTime(value: string | null);
  /**
   * The zones that can be set, sorted by byte. A name for which the machine has several
   * definitions stands there as many times. The machine is looked at by the first call of a
   * process; later ones answer the same. Array and strings are the caller's, to be freed with
   * NS_Free.
   */
  getSupportedTimezones(): string[];
}

/**
 * A connector of an adapter. Its name and mask are the second and third key by which application
 * profiles are looked up. Main thread; immutable but for the label.
 */
interface nsISystemConnector extends nsISupports {
  /** The connector type, "usb" for one: a word of the preference names, so without points. */
  readonly name: string;
  /**
   * "*", or decimal digits: a bit mask that tells equal connectors of one machine apart. The masks
   * of an adapter's connectors are joined bit by bit.
   */
  readonly mask: string;
  /**
   * The text for people: the one of the maker until SetLabel.
   * Setting: Changes the label and stores it as the preference "vorel.connectors.NAME.MASK", for the
   * application: the system itself does not read it back. The label is changed even when it could
   * not be stored: NS_ERROR_FAILURE without the preferences, else the error that they gave.
   */
  get label(): string;
  set label(value: string | null);
  /** Success, and the caller's string stays as it is. */
  readonly type: string;
}

/**
 * The device of an adapter. Its name is the first of the keys by which application profiles are
 * looked up. Immutable; any thread.
 */
interface nsISystemDevice extends nsISupports {
  /**
   * The device type's name, "mass-storage" for one: a word of the preference names, so without
   * points.
   */
  readonly name: string;
  /** The text for people, "mass storage". */
  readonly label: string;
}

/**
 * Does not change. Modes belong to the display that lists them; width and height are those of the
 * picture that is not turned. Any thread.
 */
interface nsISystemDisplayMode extends nsISupports {
  /** "1920x1080 60Hz". */
  readonly name: string;
  /** In pixels; the larger of the two. */
  readonly width: number;
  readonly height: number;
  /** In Hz, rounded as people do: 60 for 59.94. */
  readonly frequency: number;
  readonly interlaced: boolean;
  /** Whether all of the above are the same; false for null. */
  equals(other: nsISystemDisplayMode | null): boolean;
}

/**
 * "@vorel/system/apb/displayoutput;1". Before Init everything is NS_ERROR_NOT_AVAILABLE. On an
 * adapter that is no display the operations below are NS_ERROR_UNEXPECTED; other failures are the
 * adapter's. Main thread.
 */
interface nsISystemDisplayOutputBinding extends nsISystemApplicationProfileBinding {
  /**
   * False while the display is on, which it always is: setting standby succeeds, and does nothing.
   * The output is true on failure.
   */
  standby: boolean;
  /** Percent. */
  brightness: number;
}

/**
 * The place of a display's upper left corner on the desktop that all displays share, in pixels;
 * negative to the left of the first display and above it. One thread at a time.
 *
 * "@vorel/systemdisplayposition;1" is one object for all who ask for it: whoever wants a place of
 * their own clones one.
 */
interface nsISystemDisplayPosition extends nsISupports {
  clone(): nsISystemDisplayPosition | null;
  /** Whether both coordinates are the same; false for null. */
  equals(other: nsISystemDisplayPosition | null): boolean;
  x: number;
  y: number;
}

/**
 * Paths are relative to the root of the watch, use "/", and have no leading "/". A directory's
 * path ends in "/". Called on the thread that started the watch; results are ignored.
 *
 * One report is one difference between two looks at the disk, so that several writes may come as
 * one change, and a file that came and went between two looks is never heard of.
 *
 * From within OnWatcherStarted and OnWatcherStopped, no watch on the same root may be started or
 * stopped through the shared service: it holds its lock across these two calls.
 */
interface nsISystemFileSystemListener extends nsISupports {
  readonly ERROR_ROOT_MISSING: 0;
  readonly ERROR_TREE: 2;
  readonly ERROR_ROOT_GONE: 3;
  readonly ERROR_INCOMPLETE: 4;
  readonly ERROR_FULL_LISTING: 5;
  /** The watch stands; what changes from now on is reported. */
  onWatcherStarted(): void;
  /** The watch has ended. */
  onWatcherStopped(): void;
  /**
   * ERROR_ROOT_MISSING with the watched path: the root does not exist. ERROR_TREE with an empty
   * text: the picture of the directory failed. The watch does not stand.
   *
   * ERROR_ROOT_GONE with the watched path: the root of a standing watch was deleted, moved,
   * replaced or unmounted, or a link on the way to it leads elsewhere now. Nothing more is heard
   * of it. Whoever stops and starts gets a new watch of what is there then.
   *
   * ERROR_INCOMPLETE, after OnWatcherStarted, with a text for people that begins with the path of
   * a directory: it can't be watched, and nothing is heard of what is below it. It is tried again
   * from time to time, and what it holds by then is reported as added. Of many at once some are
   * told, and when the system can watch no more, one. Who comes later to a watch that stands hears
   * of those that are not watched yet.
   *
   * ERROR_FULL_LISTING with the name: of a watch with the option "since", the snapshot of that
   * name was never there, is damaged, or of another directory. All there is is told as added, and
   * the watch goes on.
   */
  onWatcherError(code: number, text: string): void;
  /** A file was written to, or something came into, left or got another name in a directory. */
  onFileSystemChanged(path: string): void;
  /** Of a directory, everything below it is reported first, the deepest first. */
  onFileSystemRemoved(path: string): void;
  /** Of a directory, everything that it already holds is reported first. */
  onFileSystemAdded(path: string): void;
}

/**
 * A client of the shared service that does not implement this one hears a removal and an addition
 * in place of a move.
 */
interface nsISystemFileSystemListener2 extends nsISystemFileSystemListener {
  /**
   * Something has another name or another place below the root. Of a directory, one call for each
   * entry below it comes first, the deepest first, then its own.
   */
  onFileSystemMoved(oldPath: string, newPath: string): void;
}

/**
 * Brings font files into the running process, takes them out again, and tells what is there. What
 * is brought in goes with the process. Main thread.
 *
 * A font is known by the leaf name of its file, in any case of ASCII letters: two files of the
 * same name in two folders are one font. A face is known by family, style (1 italic, 0 not) and
 * weight (700 bold, 400 not).
 */
interface nsISystemFont extends nsISupports {
  /**
   * Adds all fonts below a directory, at any depth, but those whose face the platform has already;
   * then has the browser engine look at its fonts again. A file that can't be read as a font is
   * passed over. NS_ERROR_FAILURE when there is no such directory.
   */
  synchronize(directory: nsIFile | null): void;
  /**
   * Adds one file, which is to answer nsIFile. Success, and nothing done, when a font of that name
   * is there. NS_ERROR_FAILURE when the platform refuses the file. When only its description can't
   * be read the font is in, without a face to be found by, and the result is that of the
   * description.
   */
  addFont(file: nsISupports | null): void;
  /**
   * Takes out what AddFont brought in. Success, and nothing done, for a font that AddFont did not
   * bring in, and for a file of that name at another path. A file that has become unreadable can't
   * be taken out.
   */
  removeFont(file: nsISupports | null): void;
  /**
   * Whether a key, a leaf name in small letters, is a font of the system's folder and one that was
   * added. That is never so of a font that AddFont brought in; kept as it stands.
   */
  hasFont(key: string | null): boolean;
  /**
   * Looks for a face, first among those of the platform, then among the files known here. A style
   * of 0xFFFF is italic at any weight. aFile may be null; otherwise *aFile is the file that the
   * face is known to lie in, or null, and a face known here counts as found, whatever the platform
   * says.
   */
  findFontFace(family: string | null, style: number, weight: number): { found: boolean; file: nsIFile | null };
  /** Whether the name ends like a font's: ".ttf", ".ttc", ".otf", ".fon", ".woff", in any case. */
  isFontFile(file: nsIFile | null): boolean;
}

/** Main thread, but for what is said otherwise. */
interface nsISystemGeneralSettings extends nsISupports {
  /**
   * The machine's name on the network, at most 63 bytes. Success, and the string as it was, when
   * it can't be had.
   * Setting: NS_ERROR_NOT_IMPLEMENTED, always.
   */
  get hostName(): string;
  set hostName(value: string | null);
  /**
   * Whether the mouse cursor shows, as it was last set here; true to begin with. Any thread.
   * Setting: Shows or hides it, whatever others in the process have done to it. Any thread.
   */
  showCursor: boolean;
  /**
   * The machine's serial number, on platforms where it has one; NS_ERROR_NOT_IMPLEMENTED on all
   * others.
   */
  readonly deviceId: string;
  /**
   * The address of the first LAN adapter, as it was when this was first asked for.
   * NS_ERROR_FAILURE when that adapter has none; without such an adapter, the failure of the list.
   */
  readonly mac: nsISystemMACStructure | null;
  /**
   * A text that names this machine, made of its address: "00000000-0000-0000-0001-001122334455".
   * Kept from the first success on. The failures of GetMac.
   */
  readonly uuid: string;
  /** What the player runs on, system and processor: "nt-ia32", "linux-x86_64". */
  readonly platform: string;
  /**
   * The product's version, from the preference "extensions.lastAppVersion"; its failure when there
   * is none.
   */
  readonly version: string;
  /**
   * Five texts about the device, for the application's use, in the preferences
   * "vorel.player.device-info.field1" to "field5". One that was never set is empty.
   */
  get field1(): string;
  set field1(value: string | null);
  get field2(): string;
  set field2(value: string | null);
  get field3(): string;
  set field3(value: string | null);
  get field4(): string;
  set field4(value: string | null);
  get field5(): string;
  set field5(value: string | null);
}

/**
 * What a network interface has: an address and the prefix that says who is reached without a
 * gateway. Made by IP adapters only. The operations on origins, lifetimes and the state of
 * duplicate detection keep their places; where told so they are not implemented, in any object.
 */
interface nsISystemIPAddress extends nsISupports {
  /**
   * The address itself, not a copy; null when none was set.
   * Setting: Keeps aAddress itself; null is allowed.
   */
  address: nsISystemIPStructure | null;
  /**
   * In bits. 0 in a new object.
   * Setting: Any value is taken, also one that is longer than the address.
   */
  prefixLength: number;
  /**
   * The prefix length as an IPv4 mask, whatever the class of the address: of 32 bits and more it
   * is 255.255.255.255.
   * Setting: Sets the prefix length to the number of leading one bits of aMask, which is not kept:
   * 255.0.255.0 gives 8. NS_ERROR_NULL_POINTER for null; a failure of its GetBytes is returned.
   */
  mask: nsISystemIPStructure | null;
  /**
   * 1 in any object.
   * Setting: NS_ERROR_NOT_IMPLEMENTED, as all that follow.
   */
  prefixOrigin: number;
  suffixOrigin: number;
  validLifetime: number | bigint;
  preferredLifetime: number | bigint;
  leaseLifetime: number | bigint;
  dadState: number;
}

/**
 * What IPv4, IPv6 and link-layer (MAC) addresses have in common. A new value is all zero.
 *
 * Values may be passed between threads, but one value is not to be changed by two threads at once.
 * Whoever hands out a value of its own hands out a clone, so a caller may change what it was
 * given.
 */
interface nsISystemIPStructure extends nsISupports {
  /**
   * The text form: 192.168.1.20 for IPv4, 2001:db8::1 for IPv6, 00-1A-2B-3C-4D-5E for a MAC
   * address.
   * Setting: Reads the text form.
   *
   * IPv4: four decimal numbers with points between, and text behind them is ignored. Fewer are
   * NS_ERROR_FAILURE and change nothing. A number that is not in 0 to 255 is
   * NS_ERROR_NOT_IMPLEMENTED; the bytes before it are stored. IPv6: the longest text from the
   * start that is an address (so that a zone, a prefix length or a port behind it does no harm);
   * NS_ERROR_FAILURE, and nothing is changed, when there is none. MAC: hexadecimal numbers up to
   * FF with "-" or ":" between, as many as the text has: the value takes that length.
   * NS_ERROR_FAILURE, and nothing is changed, for other text.
   */
  get string(): string;
  set string(value: string | null);
  /** A copy of the bytes, to be freed with NS_Free. NS_ERROR_FAILURE for a value without bytes. */
  getBytes(): number[];
  /**
   * Takes aCount bytes. NS_ERROR_INVALID_ARG for a null pointer (whatever the count),
   * NS_ERROR_FAILURE when aCount is not the length that the value has.
   */
  setBytes(count: number, bytes: number[]): void;
  /** A new value of the same class with the same bytes. */
  clone(): nsISystemIPStructure | null;
  /**
   * True when aOther has the same length and bytes, whatever its class. False for null. Always
   * succeeds.
   */
  equals(other: nsISystemIPStructure | null): boolean;
}

/**
 * Four bytes; byte 0 is the first number of the text form. Made by
 * "@vorel/system/ipv4structure;1", or by script with `new SystemIPv4Structure()`. The accessors
 * below do no checks and always succeed.
 */
interface nsISystemIPv4Structure extends nsISystemIPStructure {
  byte0: number;
  byte1: number;
  byte2: number;
  byte3: number;
}

/**
 * Sixteen bytes; byte 0 is the high byte of the first group of the text form. Made by
 * "@vorel/system/ipv6structure;1", or by script with `new SystemIPv6Structure()`. The accessors
 * below do no checks and always succeed.
 */
interface nsISystemIPv6Structure extends nsISystemIPStructure {
  byte0: number;
  byte1: number;
  byte2: number;
  byte3: number;
  byte4: number;
  byte5: number;
  byte6: number;
  byte7: number;
  byte8: number;
  byte9: number;
  byte10: number;
  byte11: number;
  byte12: number;
  byte13: number;
  byte14: number;
  byte15: number;
}

/**
 * Six bytes, or as many as the last text had that SetString took; byte 0 is the first of the text
 * form. Made by
 * "@vorel/system/macstructure;1", or by script with `new SystemMACStructure()`. The accessors
 * below do no checks and always succeed: bytes 0 to 5 are there even when the value is shorter.
 */
interface nsISystemMACStructure extends nsISystemIPStructure {
  byte0: number;
  byte1: number;
  byte2: number;
  byte3: number;
  byte4: number;
  byte5: number;
}

/** Any thread. */
interface nsISystemMaintenance extends nsISupports {
  /**
   * Ends the process by a write to address 0, and so by way of the crash reporter.
   * NS_ERROR_FAILURE should the write be survived.
   */
  crashProcess(): void;
  /**
   * Blocks the main thread for ever; from another thread, that one too. Where the watchdog is on
   * it ends the process 180 seconds after it was last fed.
   */
  hangMainThread(): void;
  /**
   * Runs a line of the system's shell, on a thread of its own. The result tells whether that
   * thread could be started; nothing but a warning in the log tells how the command ended.
   */
  runCommand(commandLine: string | null): void;
}

/**
 * The list of adapters, the list of bindings that say on which adapters application profiles are
 * in force, and listeners to both.
 *
 * Meant for the main thread: no operation takes a lock. The lists are empty before start-up has
 * reached the profile, and again after "xpcom-shutdown"; the operations work all the same. Out
 * arrays are new ones, with references to the same objects: a later change of the machine does not
 * show in them.
 */
interface nsISystemManager extends nsISupports {
  /** All adapters, in the order in which they were found. */
  readonly adapters: nsIArray;
  /**
   * Looks again at the adapters of one kind. Followed for nsISystemAdapterIP, whose result is the
   * discovery's; for every other interface success, and nothing is done.
   */
  refreshAdapters(iid: nsIDLike): void;
  /**
   * The adapters that answer to an interface, in the order in which they were found; an empty
   * array when there is none. NS_ERROR_FAILURE when no array can be made.
   */
  getAdaptersByIId(iid: nsIDLike): nsIArray | null;
  /**
   * The bindings of a profile, in the order in which they came into force; null, and success, when
   * there is none. aUri is the profile's name, or a URN that holds it: "urn:vorel:owl:NAME" or
   * "urn:vorel:owl:NAME:...". Upper and lower case differ. A binding that fails to tell its
   * profile fails the call.
   */
  getApplicationProfileBindingsByProfileUri(uri: string | null): nsIArray | null;
  /**
   * NS_OK, always; null is passed over. A listener that is added twice is called twice. Held until
   * it is removed, or until "xpcom-shutdown".
   */
  addAdapterListener(listener: nsISystemAdapterListener | nsScripted<nsISystemAdapterListener> | null): void;
  /** Removes it once. The value 1 when it was found, 0 when it was not. */
  removeAdapterListener(listener: nsISystemAdapterListener | nsScripted<nsISystemAdapterListener> | null): void;
  /** The value 1; 0 for null. Otherwise as AddAdapterListener. */
  addProfileBindingListener(listener: nsISystemProfileBindingListener | nsScripted<nsISystemProfileBindingListener> | null): void;
  /** Removes it once. The value 1 when it was found, 0 when it was not. */
  removeProfileBindingListener(listener: nsISystemProfileBindingListener | nsScripted<nsISystemProfileBindingListener> | null): void;
}

/**
 * Puts the settings that the configuration store has of the machine's interfaces into force, on
 * trial: what is not confirmed in time is taken back; so is what was on trial when the process
 * ended or the machine lost its power, by the next start. The store is written through the
 * registered view of an adapter (nsISystemAdapterIP.registered) and is not changed here.
 * Interfaces that nobody has stored settings of are left alone, and so are those that have
 * theirs in force already.
 *
 * Apply, Confirm, Rollback and ApplyConfirmed only begin: how it ends is told by the state.
 * Observers of "network-configuration-changed" hear of each change of it, with this service as
 * subject and, as data, "applying", "waiting", "confirmed", "rolling-back", "rolled-back",
 * "failed", "refused", or "idle" when what another process has left turned out to be in good
 * hands; the reason can be asked for then. Main thread, which never waits here.
 *
 * Settings are told as lines: "dhcp", or "address 192.0.2.10/24" and "gateway 192.0.2.1" for each,
 * "metric 100", and "server 192.0.2.53" for each DNS server. The empty name stands for the whole
 * machine, which has "igmp 2": the version of IGMP that it speaks (1 to 3), stored by
 * nsISystemAdapterIP.igmpVersion of any view.
 */
interface nsISystemNetworkConfiguration extends nsISupports {
  readonly STATE_IDLE: 0;
  readonly STATE_APPLYING: 1;
  readonly STATE_WAITING: 2;
  readonly STATE_CONFIRMED: 3;
  readonly STATE_ROLLED_BACK: 4;
  readonly STATE_FAILED: 5;
  readonly STATE_ROLLING_BACK: 6;
  readonly STATE_REFUSED: 7;
  /** One of STATE_... */
  readonly state: number;
  /**
   * Why the state is what it is, or why the last call was refused; for people, in English. A line
   * for each thing that is wrong; empty when there is nothing to say.
   */
  readonly reason: string;
  /**
   * What is wrong with the stored settings: a line each, beginning with the interface; empty when
   * there is nothing. Fails as the store or the machine does.
   */
  check(): string;
  /**
   * What would be wrong with the settings if these were stored of an interface: an address with
   * the length of its prefix or its mask ("192.0.2.10/24"), the gateway, and DNS servers with
   * commas between. Empty texts are none; with aDhcp address and gateway are not looked at.
   */
  checkSettings(interface: string | null, dhcp: boolean, address: string | null, gateway: string | null, servers: string | null): string;
  /** What is stored of an interface; empty when nobody has stored anything. */
  getStoredSettings(interface: string | null): string;
  /** What is in force on it. Metrics are not told. NS_ERROR_FILE_NOT_FOUND when it is not there. */
  getLiveSettings(interface: string | null): string;
  /** What was confirmed last of it; empty when nothing was. */
  getConfirmedSettings(interface: string | null): string;
  /**
   * Puts everything stored into force, and takes it back aSeconds (1 to 86400) after it was
   * (STATE_WAITING). When all of it is in force already, the state is STATE_CONFIRMED at once.
   * When a step fails, all before it is put back, and the state is STATE_ROLLED_BACK.
   *
   * While the network service that has the interfaces is not there, what can be is put back
   * without it, the state is STATE_FAILED, and the rest follows once it is there.
   *
   * NS_ERROR_INVALID_ARG for aSeconds out of range or for settings that Check finds fault with,
   * NS_ERROR_IN_PROGRESS while something is under way, waits, or could not be taken back. What
   * only the system can tell is refused with STATE_REFUSED, before anything is touched: DHCP where
   * nobody gets leases, a trial of another process, a missing right.
   */
  apply(seconds: number): void;
  /**
   * What is on trial stays. When nothing is on trial here, another process that has a trial is
   * asked, and STATE_REFUSED says that none has. NS_ERROR_IN_PROGRESS while something is under
   * way.
   */
  confirm(): void;
  /**
   * Takes back what is on trial, or what could not be taken back before; asks another process as
   * Confirm does. NS_ERROR_IN_PROGRESS while something is under way.
   */
  rollback(): void;
  /**
   * Takes back what a process that died has left, and puts what was confirmed last into force,
   * where that does not outlive a restart of the machine. It is for the machine's start: there is
   * no trial, and up to half a minute after the service was made it waits for the network services
   * that had the interfaces. After STATE_FAILED it may be called again, and Apply may be. Else
   * NS_ERROR_IN_PROGRESS as for Apply.
   */
  applyConfirmed(): void;
}

/**
 * Given to nsISystemManager::AddProfileBindingListener. Called on the main thread, in the order of
 * registration, while the call that made the change waits. Results are ignored. For listeners that
 * come and go during a round see nsISystemAdapterListener.
 */
interface nsISystemProfileBindingListener extends nsISupports {
  /** The binding is in the list and in force. */
  onProfileBindingAdded(binding: nsISystemApplicationProfileBinding | nsScripted<nsISystemApplicationProfileBinding> | null): void;
  /** The binding is out of the list. */
  onProfileBindingRemoved(binding: nsISystemApplicationProfileBinding | nsScripted<nsISystemApplicationProfileBinding> | null): void;
}

/** A maintenance command that runs off the main thread, and its status. Main thread. */
interface nsISystemRequest extends nsISupports {
  /**
   * Starts the command and comes back at once. When it has ended, aObserver, which may be null,
   * hears "system-request-stopped" with the request as subject and the status, as "0x%x", as data.
   * NS_ERROR_IN_PROGRESS while it runs; a request that has ended may be started again.
   */
  asyncStart(observer: nsIObserver | nsScripted<nsIObserver> | nsIObserver["observe"] | null): void;
  /**
   * Ends the command, and what it has started, as far as that can be ended; the observer hears of
   * it when it has. NS_ERROR_NOT_AVAILABLE when it does not run.
   */
  cancel(): void;
  /**
   * NS_ERROR_NOT_INITIALIZED before the first start, NS_ERROR_IN_PROGRESS while the command runs,
   * then NS_OK when it ended with 0, NS_ERROR_ABORT when it was cancelled, NS_ERROR_FAILURE when
   * it ended otherwise or could not be run.
   */
  readonly status: number;
}

/** Formats the data disk. */
interface nsISystemRequestFormat extends nsISystemRequest {
}

/** Makes what has been changed on a disk that forgets stay. */
interface nsISystemRequestCommit extends nsISystemRequest {
}

/** Checks the data disk and repairs it. */
interface nsISystemRequestCheckDataDisk extends nsISystemRequest {
}

/**
 * Given to nsISystemAdapterSerial::AddListener; told of ports that are open in mode 2. Called on
 * the main thread, one listener after the other, while the port's worker waits. Results are
 * ignored.
 *
 * Whatever happens on the port, everything that the port listens for is told: a line may be told
 * that has not changed. Each call has the line's state at that moment.
 */
interface nsISystemSerialListener extends nsISupports {
  /** Clear to send. */
  onCTS(state: boolean): void;
  /** Data set ready. */
  onDSR(state: boolean): void;
  /** The ring indicator. */
  onRING(state: boolean): void;
  /** Data carrier detect. */
  onDCD(state: boolean): void;
  /**
   * Bytes have come. aStream is the port's input stream; what Available says can be read at once.
   * What is left unread is told again only with further bytes.
   */
  onData(stream: nsIInputStream | null): void;
}

/**
 * Another face of a serial adapter, to be asked for by name. Looks at the machine at each call,
 * from any thread; NS_ERROR_NOT_AVAILABLE while the device is not there. A text that is not known
 * is empty, and that is no error.
 */
interface nsISystemSerialPortInfo extends nsISupports {
  /** The system's own name of it: "/dev/ttyUSB0". */
  readonly devicePath: string;
  readonly driver: string;
  readonly maker: string;
  readonly product: string;
  /**
   * What stays the same however the devices are plugged in and in which order: made of the serial
   * number, or else of the place where it is plugged in. The port keeps its name by it.
   */
  readonly identity: string;
}

/** The interfaces by name. Where one is wanted as a parameter, it is one of these. */
interface nsInterfaces {
  readonly nsISupports: nsInterfaceID<nsISupports>;
  readonly nsIHostDocument: nsInterfaceID<nsIHostDocument>;
  readonly nsIWeakReference: nsInterfaceID<nsIWeakReference>;
  readonly nsISupportsWeakReference: nsInterfaceID<nsISupportsWeakReference>;
  readonly nsIClassInfo: nsInterfaceID<nsIClassInfo> & { readonly SINGLETON: 1; readonly THREADSAFE: 2; readonly MAIN_THREAD_ONLY: 4; readonly DOM_OBJECT: 8; readonly PLUGIN_OBJECT: 16; readonly CONTENT_NODE: 64; readonly RESERVED: 2147483648; };
  readonly nsIProgrammingLanguage: nsInterfaceID<nsIProgrammingLanguage> & { readonly UNKNOWN: 0; readonly CPLUSPLUS: 1; readonly JAVASCRIPT: 2; readonly PYTHON: 3; readonly PERL: 4; readonly JAVA: 5; readonly ZX81_BASIC: 6; readonly JAVASCRIPT2: 7; readonly RUBY: 8; readonly PHP: 9; readonly TCL: 10; readonly MAX: 10; };
  readonly nsIInterfaceRequestor: nsInterfaceID<nsIInterfaceRequestor>;
  readonly nsIComponentManager: nsInterfaceID<nsIComponentManager>;
  readonly nsIServiceManager: nsInterfaceID<nsIServiceManager>;
  readonly nsIComponentRegistrar: nsInterfaceID<nsIComponentRegistrar>;
  readonly nsIFactory: nsInterfaceID<nsIFactory>;
  readonly nsIModule: nsInterfaceID<nsIModule>;
  readonly nsICategoryManager: nsInterfaceID<nsICategoryManager>;
  readonly nsIObserver: nsInterfaceID<nsIObserver>;
  readonly nsIObserverService: nsInterfaceID<nsIObserverService>;
  readonly nsIMemory: nsInterfaceID<nsIMemory>;
  readonly nsIDebug: nsInterfaceID<nsIDebug>;
  readonly nsIDebug2: nsInterfaceID<nsIDebug2>;
  readonly nsIConsoleService: nsInterfaceID<nsIConsoleService>;
  readonly nsIConsoleMessage: nsInterfaceID<nsIConsoleMessage>;
  readonly nsIConsoleListener: nsInterfaceID<nsIConsoleListener>;
  readonly nsIUUIDGenerator: nsInterfaceID<nsIUUIDGenerator>;
  readonly nsIPrefService: nsInterfaceID<nsIPrefService>;
  readonly nsIPrefBranch: nsInterfaceID<nsIPrefBranch> & { readonly PREF_INVALID: 0; readonly PREF_STRING: 32; readonly PREF_INT: 64; readonly PREF_BOOL: 128; };
  readonly nsIPrefBranch2: nsInterfaceID<nsIPrefBranch2> & { readonly PREF_INVALID: 0; readonly PREF_STRING: 32; readonly PREF_INT: 64; readonly PREF_BOOL: 128; };
  readonly nsIPrefBranchInternal: nsInterfaceID<nsIPrefBranchInternal> & { readonly PREF_INVALID: 0; readonly PREF_STRING: 32; readonly PREF_INT: 64; readonly PREF_BOOL: 128; };
  readonly nsIEventTarget: nsInterfaceID<nsIEventTarget> & { readonly DISPATCH_NORMAL: 0; readonly DISPATCH_SYNC: 1; };
  readonly nsIThread: nsInterfaceID<nsIThread> & { readonly DISPATCH_NORMAL: 0; readonly DISPATCH_SYNC: 1; };
  readonly nsIThreadInternal: nsInterfaceID<nsIThreadInternal> & { readonly DISPATCH_NORMAL: 0; readonly DISPATCH_SYNC: 1; };
  readonly nsIThreadObserver: nsInterfaceID<nsIThreadObserver>;
  readonly nsIThreadManager: nsInterfaceID<nsIThreadManager> & { readonly DEFAULT_STACK_SIZE: 0; };
  readonly nsIRunnable: nsInterfaceID<nsIRunnable>;
  readonly nsITimer: nsInterfaceID<nsITimer> & { readonly TYPE_ONE_SHOT: 0; readonly TYPE_REPEATING_SLACK: 1; readonly TYPE_REPEATING_PRECISE: 2; readonly TYPE_REPEATING_PRECISE_CAN_SKIP: 3; };
  readonly nsITimerCallback: nsInterfaceID<nsITimerCallback>;
  readonly nsIArray: nsInterfaceID<nsIArray>;
  readonly nsIMutableArray: nsInterfaceID<nsIMutableArray>;
  readonly nsISimpleEnumerator: nsInterfaceID<nsISimpleEnumerator>;
  readonly nsIStringEnumerator: nsInterfaceID<nsIStringEnumerator>;
  readonly nsIUTF8StringEnumerator: nsInterfaceID<nsIUTF8StringEnumerator>;
  readonly nsISupportsPrimitive: nsInterfaceID<nsISupportsPrimitive> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsCString: nsInterfaceID<nsISupportsCString> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsString: nsInterfaceID<nsISupportsString> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsPRBool: nsInterfaceID<nsISupportsPRBool> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsPRUint32: nsInterfaceID<nsISupportsPRUint32> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsPRInt32: nsInterfaceID<nsISupportsPRInt32> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsInterfacePointer: nsInterfaceID<nsISupportsInterfacePointer> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsISupportsID: nsInterfaceID<nsISupportsID> & { readonly TYPE_ID: 1; readonly TYPE_CSTRING: 2; readonly TYPE_STRING: 3; readonly TYPE_PRBOOL: 4; readonly TYPE_PRUINT8: 5; readonly TYPE_PRUINT16: 6; readonly TYPE_PRUINT32: 7; readonly TYPE_PRUINT64: 8; readonly TYPE_PRTIME: 9; readonly TYPE_CHAR: 10; readonly TYPE_PRINT16: 11; readonly TYPE_PRINT32: 12; readonly TYPE_PRINT64: 13; readonly TYPE_FLOAT: 14; readonly TYPE_DOUBLE: 15; readonly TYPE_VOID: 16; readonly TYPE_INTERFACE_POINTER: 17; };
  readonly nsIProperties: nsInterfaceID<nsIProperties>;
  readonly nsIPropertyBag: nsInterfaceID<nsIPropertyBag>;
  readonly nsIVariant: nsInterfaceID<nsIVariant>;
  readonly nsIFile: nsInterfaceID<nsIFile> & { readonly NORMAL_FILE_TYPE: 0; readonly DIRECTORY_TYPE: 1; readonly OS_READAHEAD: 1073741824; readonly DELETE_ON_CLOSE: 2147483648; };
  readonly nsILocalFile: nsInterfaceID<nsILocalFile> & { readonly NORMAL_FILE_TYPE: 0; readonly DIRECTORY_TYPE: 1; readonly OS_READAHEAD: 1073741824; readonly DELETE_ON_CLOSE: 2147483648; };
  readonly nsIDirectoryService: nsInterfaceID<nsIDirectoryService>;
  readonly nsIDirectoryServiceProvider: nsInterfaceID<nsIDirectoryServiceProvider>;
  readonly nsIDirectoryServiceProvider2: nsInterfaceID<nsIDirectoryServiceProvider2>;
  readonly nsIInputStream: nsInterfaceID<nsIInputStream>;
  readonly nsIOutputStream: nsInterfaceID<nsIOutputStream>;
  readonly nsIAsyncInputStream: nsInterfaceID<nsIAsyncInputStream> & { readonly WAIT_CLOSURE_ONLY: 1; };
  readonly nsIInputStreamCallback: nsInterfaceID<nsIInputStreamCallback>;
  readonly nsIAsyncOutputStream: nsInterfaceID<nsIAsyncOutputStream> & { readonly WAIT_CLOSURE_ONLY: 1; };
  readonly nsIOutputStreamCallback: nsInterfaceID<nsIOutputStreamCallback>;
  readonly nsIBinaryInputStream: nsInterfaceID<nsIBinaryInputStream>;
  readonly nsIBinaryOutputStream: nsInterfaceID<nsIBinaryOutputStream>;
  readonly nsIPipe: nsInterfaceID<nsIPipe>;
  readonly nsISearchableInputStream: nsInterfaceID<nsISearchableInputStream>;
  readonly nsISeekableStream: nsInterfaceID<nsISeekableStream> & { readonly NS_SEEK_SET: 0; readonly NS_SEEK_CUR: 1; readonly NS_SEEK_END: 2; };
  readonly nsIFileInputStream: nsInterfaceID<nsIFileInputStream> & { readonly DELETE_ON_CLOSE: 2; readonly CLOSE_ON_EOF: 4; readonly REOPEN_ON_REWIND: 8; readonly DEFER_OPEN: 16; };
  readonly nsIFileOutputStream: nsInterfaceID<nsIFileOutputStream> & { readonly DEFER_OPEN: 1; };
  readonly nsISafeOutputStream: nsInterfaceID<nsISafeOutputStream>;
  readonly nsIStringInputStream: nsInterfaceID<nsIStringInputStream>;
  readonly nsIURI: nsInterfaceID<nsIURI>;
  readonly nsIURL: nsInterfaceID<nsIURL>;
  readonly nsIFileURL: nsInterfaceID<nsIFileURL>;
  readonly nsIIOService: nsInterfaceID<nsIIOService>;
  readonly nsIIOService2: nsInterfaceID<nsIIOService2>;
  readonly nsIProtocolHandler: nsInterfaceID<nsIProtocolHandler> & { readonly URI_STD: 0; readonly URI_NORELATIVE: 1; readonly URI_NOAUTH: 2; readonly URI_INHERITS_SECURITY_CONTEXT: 16; readonly URI_FORBIDS_AUTOMATIC_DOCUMENT_REPLACEMENT: 32; readonly URI_LOADABLE_BY_ANYONE: 64; readonly URI_DANGEROUS_TO_LOAD: 128; readonly URI_IS_UI_RESOURCE: 256; readonly URI_IS_LOCAL_FILE: 512; readonly URI_LOADABLE_BY_SUBSUMERS: 16384; readonly URI_NON_PERSISTABLE: 1024; readonly URI_DOES_NOT_RETURN_DATA: 2048; readonly URI_IS_LOCAL_RESOURCE: 4096; readonly URI_OPENING_EXECUTES_SCRIPT: 8192; readonly URI_SYNC_LOAD_IS_OK: 32768; readonly ALLOWS_PROXY: 4; readonly ALLOWS_PROXY_HTTP: 8; readonly URI_FORBIDS_COOKIE_ACCESS: 32768; };
  readonly nsIFileProtocolHandler: nsInterfaceID<nsIFileProtocolHandler> & { readonly URI_STD: 0; readonly URI_NORELATIVE: 1; readonly URI_NOAUTH: 2; readonly URI_INHERITS_SECURITY_CONTEXT: 16; readonly URI_FORBIDS_AUTOMATIC_DOCUMENT_REPLACEMENT: 32; readonly URI_LOADABLE_BY_ANYONE: 64; readonly URI_DANGEROUS_TO_LOAD: 128; readonly URI_IS_UI_RESOURCE: 256; readonly URI_IS_LOCAL_FILE: 512; readonly URI_LOADABLE_BY_SUBSUMERS: 16384; readonly URI_NON_PERSISTABLE: 1024; readonly URI_DOES_NOT_RETURN_DATA: 2048; readonly URI_IS_LOCAL_RESOURCE: 4096; readonly URI_OPENING_EXECUTES_SCRIPT: 8192; readonly URI_SYNC_LOAD_IS_OK: 32768; readonly ALLOWS_PROXY: 4; readonly ALLOWS_PROXY_HTTP: 8; readonly URI_FORBIDS_COOKIE_ACCESS: 32768; };
  readonly nsIRequest: nsInterfaceID<nsIRequest> & { readonly LOAD_REQUESTMASK: 65535; readonly LOAD_NORMAL: 0; readonly LOAD_BACKGROUND: 1; readonly INHIBIT_PIPELINE: 64; readonly INHIBIT_CACHING: 128; readonly INHIBIT_PERSISTENT_CACHING: 256; readonly LOAD_BYPASS_CACHE: 512; readonly LOAD_FROM_CACHE: 1024; readonly VALIDATE_ALWAYS: 2048; readonly VALIDATE_NEVER: 4096; readonly VALIDATE_ONCE_PER_SESSION: 8192; readonly LOAD_ANONYMOUS: 16384; readonly LOAD_FRESH_CONNECTION: 32768; };
  readonly nsIRequestObserver: nsInterfaceID<nsIRequestObserver>;
  readonly nsIStreamListener: nsInterfaceID<nsIStreamListener>;
  readonly nsIChannel: nsInterfaceID<nsIChannel> & { readonly LOAD_DOCUMENT_URI: 65536; readonly LOAD_RETARGETED_DOCUMENT_URI: 131072; readonly LOAD_REPLACE: 262144; readonly LOAD_INITIAL_DOCUMENT_URI: 524288; readonly LOAD_TARGETED: 1048576; readonly LOAD_CALL_CONTENT_SNIFFERS: 2097152; readonly LOAD_CLASSIFY_URI: 4194304; readonly DISPOSITION_INLINE: 0; readonly DISPOSITION_ATTACHMENT: 1; } & { readonly LOAD_REQUESTMASK: 65535; readonly LOAD_NORMAL: 0; readonly LOAD_BACKGROUND: 1; readonly INHIBIT_PIPELINE: 64; readonly INHIBIT_CACHING: 128; readonly INHIBIT_PERSISTENT_CACHING: 256; readonly LOAD_BYPASS_CACHE: 512; readonly LOAD_FROM_CACHE: 1024; readonly VALIDATE_ALWAYS: 2048; readonly VALIDATE_NEVER: 4096; readonly VALIDATE_ONCE_PER_SESSION: 8192; readonly LOAD_ANONYMOUS: 16384; readonly LOAD_FRESH_CONNECTION: 32768; };
  readonly nsILoadGroup: nsInterfaceID<nsILoadGroup> & { readonly LOAD_REQUESTMASK: 65535; readonly LOAD_NORMAL: 0; readonly LOAD_BACKGROUND: 1; readonly INHIBIT_PIPELINE: 64; readonly INHIBIT_CACHING: 128; readonly INHIBIT_PERSISTENT_CACHING: 256; readonly LOAD_BYPASS_CACHE: 512; readonly LOAD_FROM_CACHE: 1024; readonly VALIDATE_ALWAYS: 2048; readonly VALIDATE_NEVER: 4096; readonly VALIDATE_ONCE_PER_SESSION: 8192; readonly LOAD_ANONYMOUS: 16384; readonly LOAD_FRESH_CONNECTION: 32768; };
  readonly nsINetworkLinkService: nsInterfaceID<nsINetworkLinkService> & { readonly LINK_TYPE_UNKNOWN: 0; readonly LINK_TYPE_ETHERNET: 1; readonly LINK_TYPE_USB: 2; readonly LINK_TYPE_WIFI: 3; readonly LINK_TYPE_WIMAX: 4; readonly LINK_TYPE_2G: 5; readonly LINK_TYPE_3G: 6; readonly LINK_TYPE_4G: 7; };
  readonly nsICharsetConverterManager: nsInterfaceID<nsICharsetConverterManager>;
  readonly nsIFontEnumerator: nsInterfaceID<nsIFontEnumerator>;
  readonly nsICrashReporter: nsInterfaceID<nsICrashReporter>;
  readonly nsIXULRuntime: nsInterfaceID<nsIXULRuntime> & { readonly PROCESS_TYPE_DEFAULT: 0; readonly PROCESS_TYPE_PLUGIN: 1; readonly PROCESS_TYPE_CONTENT: 2; readonly PROCESS_TYPE_IPDLUNITTEST: 3; };
  readonly nsIXULAppInfo: nsInterfaceID<nsIXULAppInfo>;
  readonly nsIAppStartup: nsInterfaceID<nsIAppStartup> & { readonly eConsiderQuit: 1; readonly eAttemptQuit: 2; readonly eForceQuit: 3; readonly eRestart: 16; readonly eRestarti386: 32; readonly eRestartx86_64: 64; };
  readonly nsIBaseWindow: nsInterfaceID<nsIBaseWindow>;
  readonly nsIXULWindow: nsInterfaceID<nsIXULWindow> & { readonly lowestZ: 0; readonly loweredZ: 4; readonly normalZ: 5; readonly raisedZ: 6; readonly highestZ: 9; };
  readonly nsIAppShellService: nsInterfaceID<nsIAppShellService> & { readonly SIZE_TO_CONTENT: -1; };
  readonly nsIWindowMediator: nsInterfaceID<nsIWindowMediator> & { readonly zLevelTop: 1; readonly zLevelBottom: 2; readonly zLevelBelow: 3; };
  readonly nsIDigitalTvService: nsInterfaceID<nsIDigitalTvService>;
  readonly nsIBDAScanResultDigitalTvService: nsInterfaceID<nsIBDAScanResultDigitalTvService>;
  readonly nsIDigitalTvAudioChannel: nsInterfaceID<nsIDigitalTvAudioChannel> & { readonly AUDIO_MPEG: 4; readonly AUDIO_AC3: 106; readonly AUDIO_EAC3: 122; };
  readonly nsIDigitalTvInspectorListener: nsInterfaceID<nsIDigitalTvInspectorListener>;
  readonly nsIDigitalTvInspector: nsInterfaceID<nsIDigitalTvInspector>;
  readonly nsISystemFileSystemWatcher: nsInterfaceID<nsISystemFileSystemWatcher>;
  readonly nsIFileSystemWatcher: nsInterfaceID<nsIFileSystemWatcher>;
  readonly nsIIsoCountry: nsInterfaceID<nsIIsoCountry>;
  readonly nsIStreamOutputListener: nsInterfaceID<nsIStreamOutputListener>;
  readonly nsIStreamOutput: nsInterfaceID<nsIStreamOutput>;
  readonly nsISystemAdapter: nsInterfaceID<nsISystemAdapter>;
  readonly nsISystemAdapterDigitalTvReceiver: nsInterfaceID<nsISystemAdapterDigitalTvReceiver>;
  readonly nsISystemAdapterDisplayOutput: nsInterfaceID<nsISystemAdapterDisplayOutput>;
  readonly nsISystemAdapterIP: nsInterfaceID<nsISystemAdapterIP>;
  readonly nsISystemAdapterLAN: nsInterfaceID<nsISystemAdapterLAN>;
  readonly nsISystemAdapterListener: nsInterfaceID<nsISystemAdapterListener>;
  readonly nsISystemAdapterSerial: nsInterfaceID<nsISystemAdapterSerial>;
  readonly nsISystemAdapterStorage: nsInterfaceID<nsISystemAdapterStorage>;
  readonly nsISystemAdapterWLAN: nsInterfaceID<nsISystemAdapterWLAN>;
  readonly nsISystemAdapterWWAN: nsInterfaceID<nsISystemAdapterWWAN>;
  readonly nsISystemApplicationProfile: nsInterfaceID<nsISystemApplicationProfile>;
  readonly nsISystemApplicationProfileBinding: nsInterfaceID<nsISystemApplicationProfileBinding>;
  readonly nsISystemClock: nsInterfaceID<nsISystemClock>;
  readonly nsISystemConnector: nsInterfaceID<nsISystemConnector>;
  readonly nsISystemDevice: nsInterfaceID<nsISystemDevice>;
  readonly nsISystemDisplayMode: nsInterfaceID<nsISystemDisplayMode>;
  readonly nsISystemDisplayOutputBinding: nsInterfaceID<nsISystemDisplayOutputBinding>;
  readonly nsISystemDisplayPosition: nsInterfaceID<nsISystemDisplayPosition>;
  readonly nsISystemFileSystemListener: nsInterfaceID<nsISystemFileSystemListener> & { readonly ERROR_ROOT_MISSING: 0; readonly ERROR_TREE: 2; readonly ERROR_ROOT_GONE: 3; readonly ERROR_INCOMPLETE: 4; readonly ERROR_FULL_LISTING: 5; };
  readonly nsISystemFileSystemListener2: nsInterfaceID<nsISystemFileSystemListener2> & { readonly ERROR_ROOT_MISSING: 0; readonly ERROR_TREE: 2; readonly ERROR_ROOT_GONE: 3; readonly ERROR_INCOMPLETE: 4; readonly ERROR_FULL_LISTING: 5; };
  readonly nsISystemFont: nsInterfaceID<nsISystemFont>;
  readonly nsISystemGeneralSettings: nsInterfaceID<nsISystemGeneralSettings>;
  readonly nsISystemIPAddress: nsInterfaceID<nsISystemIPAddress>;
  readonly nsISystemIPStructure: nsInterfaceID<nsISystemIPStructure>;
  readonly nsISystemIPv4Structure: nsInterfaceID<nsISystemIPv4Structure>;
  readonly nsISystemIPv6Structure: nsInterfaceID<nsISystemIPv6Structure>;
  readonly nsISystemMACStructure: nsInterfaceID<nsISystemMACStructure>;
  readonly nsISystemMaintenance: nsInterfaceID<nsISystemMaintenance>;
  readonly nsISystemManager: nsInterfaceID<nsISystemManager>;
  readonly nsISystemNetworkConfiguration: nsInterfaceID<nsISystemNetworkConfiguration> & { readonly STATE_IDLE: 0; readonly STATE_APPLYING: 1; readonly STATE_WAITING: 2; readonly STATE_CONFIRMED: 3; readonly STATE_ROLLED_BACK: 4; readonly STATE_FAILED: 5; readonly STATE_ROLLING_BACK: 6; readonly STATE_REFUSED: 7; };
  readonly nsISystemProfileBindingListener: nsInterfaceID<nsISystemProfileBindingListener>;
  readonly nsISystemRequest: nsInterfaceID<nsISystemRequest>;
  readonly nsISystemRequestFormat: nsInterfaceID<nsISystemRequestFormat>;
  readonly nsISystemRequestCommit: nsInterfaceID<nsISystemRequestCommit>;
  readonly nsISystemRequestCheckDataDisk: nsInterfaceID<nsISystemRequestCheckDataDisk>;
  readonly nsISystemSerialListener: nsInterfaceID<nsISystemSerialListener>;
  readonly nsISystemSerialPortInfo: nsInterfaceID<nsISystemSerialPortInfo>;
}

interface nsClassOfContract {
  readonly contractID: string;
  getService<T = any>(iid?: nsInterfaceID<T>): T;
  createInstance<T = any>(iid?: nsInterfaceID<T>): T;
}

/** What is thrown for an operation that fails. */
interface nsException extends Error {
  /** The result code, one of Components.results. */
  readonly result: number;
  /** "nsIFoo.bar". */
  readonly method: string;
}

declare const Components: {
  /** By contract ID; an error for one that is not registered. */
  readonly classes: { readonly [contractID: string]: nsClassOfContract };
  readonly interfaces: nsInterfaces;
  readonly results: { readonly [name: string]: number };
  readonly utils: {
    /** Writes an error with its place and stack, as one that nobody caught. */
    reportError(error: unknown): void;
    forceGC(): void;
  };
  /** An error to be thrown by script that implements an interface. */
  Exception: { new (message?: string, result?: number): nsException };
  ID(text: string): string;
  isSuccessCode(result: number): boolean;
};

/** The arguments of the command line that stand behind the application. */
declare const arguments: readonly string[];
declare const document: nsIHostDocument;
declare const window: typeof globalThis;
/** Ends the application: no more script runs. The status is that of the process, from 0 to 255. */
declare function quit(status?: number): never;
declare function setTimeout(callback: (...values: any[]) => void, delay?: number, ...values: any[]): number;
declare function setInterval(callback: (...values: any[]) => void, delay?: number, ...values: any[]): number;
declare function clearTimeout(id: number | undefined): void;
declare function clearInterval(id: number | undefined): void;
declare const console: {
  log(...values: unknown[]): void;
  info(...values: unknown[]): void;
  debug(...values: unknown[]): void;
  dir(...values: unknown[]): void;
  warn(...values: unknown[]): void;
  error(...values: unknown[]): void;
  assert(condition: unknown, ...values: unknown[]): void;
  trace(...values: unknown[]): void;
  group(...values: unknown[]): void;
  groupEnd(): void;
  time(name?: string): void;
  timeEnd(name?: string): void;
};

/** The machine as the application sees it: "@vorel/system/systemmanager;1", in script the global systemManager. */
declare const systemManager: nsISystemManager;
/** Tests and repair: "@vorel/system/maintenance;1", in script the global systemMaintenance. */
declare const systemMaintenance: nsISystemMaintenance & nsITimerCallback & nsIObserver;
/** The machine as a whole: "@vorel/system/generalsettings;1", in script the global systemGeneralSettings. */
declare const systemGeneralSettings: nsISystemGeneralSettings;
declare const SystemManager: nsInterfaceID<nsISystemManager>;
declare const SystemMaintenance: nsInterfaceID<nsISystemMaintenance & nsITimerCallback & nsIObserver>;
declare const SystemGeneralSettings: nsInterfaceID<nsISystemGeneralSettings>;
/** The watcher that script constructs: new FileSystemWatcher({rootPath, listener}). */
declare const FileSystemWatcher: nsInterfaceID<nsIFileSystemWatcher> & {
  new (options: {
    rootPath: string;
    listener?: nsISystemFileSystemListener2 | nsScripted<nsISystemFileSystemListener2>;
    recursive?: boolean;
    document?: nsIHostDocument;
    exclude?: string | string[];
    only?: string | string[];
    settle?: number;
    since?: string;
  }): nsIFileSystemWatcher;
};
/** A network interface as an adapter. */
declare const SystemAdapterIP: nsInterfaceID<nsISystemAdapterIP>;
/** A wired network interface as an adapter. */
declare const SystemAdapterLAN: nsInterfaceID<nsISystemAdapterLAN>;
/** A wireless network interface as an adapter. */
declare const SystemAdapterWLAN: nsInterfaceID<nsISystemAdapterWLAN>;
/** A mobile network interface as an adapter. */
declare const SystemAdapterWWAN: nsInterfaceID<nsISystemAdapterWWAN>;
/** An IPv4 address. */
declare const SystemIPv4Structure: nsInterfaceID<nsISystemIPv4Structure> & {
  new (): nsISystemIPv4Structure;
};
/** An IPv6 address. */
declare const SystemIPv6Structure: nsInterfaceID<nsISystemIPv6Structure> & {
  new (): nsISystemIPv6Structure;
};
/** A link-layer address. */
declare const SystemMACStructure: nsInterfaceID<nsISystemMACStructure> & {
  new (): nsISystemMACStructure;
};
/** An address together with the length of its on-link prefix. */
declare const SystemIPAddress: nsInterfaceID<nsISystemIPAddress>;
/** A directory as an adapter. */
declare const SystemAdapterStorage: nsInterfaceID<nsISystemAdapterStorage>;
