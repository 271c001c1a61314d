// Status codes of the platform layer, and the codes that every library above
// shares.  A code is defined once, here in the lowest library that produces
// it; a higher library that meets the same condition returns the same name
// (out of memory is PS_RC_NOMEM in the option reader, the message system and
// the command alike) and passes a lower library's code up unchanged.
//
// Functions return 0 (PS_RC_OK) for success.  Functions that report the
// reason in errno return -1 instead; that convention is not repeated here.
#ifndef QMX_PLATFORM_PLATFORM_STATUS_H_
#define QMX_PLATFORM_PLATFORM_STATUS_H_

enum : int {
  // Success.  The option layer returns it by name; elsewhere 0 is written.
  PS_RC_OK = 0,

  // Out of memory, or a copy that can't be made.  parseBackOperand; above:
  // the options object and its callbacks, the message object, the status
  // log's name (too long for its buffer), the command's parsing space and
  // directory list, the session.  The operation is not done (the command
  // reports message 9184 and stops its loop).
  PS_RC_NOMEM = 102,

  // A missing or unusable argument: a null pointer, a path that is not
  // absolute, an unknown format or option store.  parseBackOperand,
  // psAddVirtualMountPoint, GetQuotedToken; above: the logs, the message
  // formats and insert decoder, the status log, the option reader, the
  // password file, the session.  A programming or set-up fault: nothing is
  // done, and trying again can't help.
  PS_RC_BADARG = 109,

  // A value that can't be taken as given.  GetQuotedToken: the token does
  // not fit its buffer; above, the option layer: an unknown option, a
  // keyword used as an option, a bad or out-of-range value, a value for an
  // option that takes none.  The option reader puts the token and line
  // into the error record, which the command prints before it ends.
  PS_RC_BADVALUE = 400,

  // A quoted token without its closing quote.  GetQuotedToken; above, the
  // option layer's token reader.  Reported like PS_RC_BADVALUE.
  PS_RC_QUOTE = 402,
};

#endif  // QMX_PLATFORM_PLATFORM_STATUS_H_
