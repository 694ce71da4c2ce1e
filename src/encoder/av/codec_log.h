// Where the codecs' own messages go: to the plug-in's log at debug level, never to the host's
// standard error.
#pragma once

namespace Veldrift {

// The messages of one codec object, for as long as the scope lives. libavcodec has one log function
// for the whole process and no way to ask for it: it is ours only while a scope lives, and then the
// library's default again, even if the host had set one of its own. Messages of objects that aren't
// ours go on to the library's default meanwhile.
//
// Threads: any.
class CodecLogScope {
 public:
  // `object` is what libavcodec names as the source of a message: an AVCodecContext.
  explicit CodecLogScope(const void* object);
  ~CodecLogScope();
  CodecLogScope(const CodecLogScope&) = delete;
  CodecLogScope& operator=(const CodecLogScope&) = delete;

 private:
  const void* object_;
};

// All messages of the calling thread, whatever their source: for trying out devices.
class ThreadLogScope {
 public:
  ThreadLogScope();
  ~ThreadLogScope();
  ThreadLogScope(const ThreadLogScope&) = delete;
  ThreadLogScope& operator=(const ThreadLogScope&) = delete;

 private:
  CodecLogScope scope_;
};

}  // namespace Veldrift
