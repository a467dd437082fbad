/*
 * Codec-layer front of the generated codec: transfer-syntax dispatch, buffer
 * semantics, constraint checks around the coders and the process-wide lock.
 */
#define V2X_ASN_CODEC_IMPL
#include "v2x_asn_codec.h"

#include <pthread.h>
#include <stdarg.h>
#include <string.h>

#include "per_decoder.h"
#include "per_encoder.h"
#include "xer_decoder.h"
#include "xer_encoder.h"

static pthread_mutex_t g_asnLock;
static pthread_once_t g_asnLockOnce = PTHREAD_ONCE_INIT;
static _Thread_local char g_lastError[256];

static void asnLockInit(void) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&g_asnLock, &attr);
  pthread_mutexattr_destroy(&attr);
}

void v2x_asn_lock(void) {
  pthread_once(&g_asnLockOnce, asnLockInit);
  pthread_mutex_lock(&g_asnLock);
}

void v2x_asn_unlock(void) { pthread_mutex_unlock(&g_asnLock); }

const char* v2x_asn_last_error(void) { return g_lastError; }

static void setError(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
static void setError(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(g_lastError, sizeof(g_lastError), fmt, ap);
  va_end(ap);
}

/* Generated descriptors are not const in this asn1c version; the callers'
 * descriptors are never const objects either. */
static asn_TYPE_descriptor_t* mutableTd(const asn_TYPE_descriptor_t* td) { return (asn_TYPE_descriptor_t*)td; }

/* ---- constraint checks ---- */

typedef struct {
  int failed;
  asn_TYPE_descriptor_t* td;
  const void* sptr;
  char text[200];
} ConstraintFailure;

static void onConstraintFailed(void* key, asn_TYPE_descriptor_t* td, const void* sptr, const char* fmt, ...) {
  ConstraintFailure* f = (ConstraintFailure*)key;
  if (f->failed) return; /* keep the innermost (first reported) failure */
  f->failed = 1;
  f->td = td;
  f->sptr = sptr;
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(f->text, sizeof(f->text), fmt, ap);
  va_end(ap);
  /* The checkers append " (file.c:line)"; that is noise for a reader. */
  char* where = strrchr(f->text, '(');
  if (where != NULL && where > f->text && where[-1] == ' ' && strchr(where, ')') != NULL) where[-1] = '\0';
}

/* Caller holds the lock. 0 when sptr passes every check of td. */
static int checkConstraints(asn_TYPE_descriptor_t* td, const void* sptr, ConstraintFailure* f) {
  memset(f, 0, sizeof(*f));
  if (td->check_constraints(td, sptr, onConstraintFailed, f) == 0) return 0;
  if (!f->failed) {
    f->failed = 1;
    f->td = td;
    f->sptr = sptr;
    snprintf(f->text, sizeof(f->text), "%s: constraint failed", td->name);
  }
  return -1;
}

int v2x_asn_check_constraints(const asn_TYPE_descriptor_t* td, const void* sptr, char* errbuf, size_t* errlen) {
  if (td == NULL) return -1;
  ConstraintFailure f;
  v2x_asn_lock();
  int rc = checkConstraints(mutableTd(td), sptr, &f);
  v2x_asn_unlock();
  if (rc != 0 && errbuf != NULL && errlen != NULL && *errlen > 0) {
    size_t n = strlen(f.text);
    if (n >= *errlen) n = *errlen - 1;
    memcpy(errbuf, f.text, n);
    errbuf[n] = '\0';
    *errlen = n;
  }
  return rc;
}

/* ---- encoding ---- */

typedef struct {
  unsigned char* buf;
  size_t capacity;
  size_t total; /* bytes produced, including those that did not fit */
} BoundedSink;

static int writeBounded(const void* data, size_t size, void* key) {
  BoundedSink* s = (BoundedSink*)key;
  if (s->total < s->capacity) {
    size_t room = s->capacity - s->total;
    memcpy(s->buf + s->total, data, size < room ? size : room);
  }
  s->total += size;
  return 0;
}

static asn_enc_rval_t encodeFailed(asn_TYPE_descriptor_t* td, const void* sptr) {
  asn_enc_rval_t er;
  er.encoded = -1;
  er.failed_type = td;
  er.structure_ptr = (void*)sptr;
  return er;
}

asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* opt_codec_ctx, enum asn_transfer_syntax syntax,
                                    const asn_TYPE_descriptor_t* ctd, const void* sptr, void* buffer,
                                    size_t buffer_size) {
  (void)opt_codec_ctx;
  asn_TYPE_descriptor_t* td = mutableTd(ctd);
  g_lastError[0] = '\0';
  if (td == NULL || sptr == NULL) {
    setError("nothing to encode");
    return encodeFailed(td, sptr);
  }
  BoundedSink sink = {(unsigned char*)buffer, buffer == NULL ? 0 : buffer_size, 0};
  asn_enc_rval_t er;

  v2x_asn_lock();
  ConstraintFailure f;
  if (checkConstraints(td, sptr, &f) != 0) {
    v2x_asn_unlock();
    setError("%s", f.text);
    return encodeFailed(f.td, f.sptr);
  }
  switch (syntax) {
    case ATS_UNALIGNED_BASIC_PER:
    case ATS_UNALIGNED_CANONICAL_PER:
      er = uper_encode(td, (void*)sptr, writeBounded, &sink);
      if (er.encoded >= 0) {
        if (er.encoded == 0) {
          /* A complete encoding is never empty: one zero octet. */
          static const unsigned char zero = 0;
          writeBounded(&zero, 1, &sink);
        }
        er.encoded = (ssize_t)sink.total;
      }
      break;
    case ATS_BASIC_XER:
    case ATS_CANONICAL_XER:
      er = xer_encode(td, (void*)sptr, syntax == ATS_BASIC_XER ? XER_F_BASIC : XER_F_CANONICAL, writeBounded, &sink);
      if (er.encoded >= 0) er.encoded = (ssize_t)sink.total;
      break;
    default:
      v2x_asn_unlock();
      setError("transfer syntax %d is not supported", (int)syntax);
      return encodeFailed(td, sptr);
  }
  v2x_asn_unlock();

  if (er.encoded < 0) {
    setError("%s: cannot be encoded", er.failed_type != NULL ? er.failed_type->name : td->name);
  }
  return er;
}

/* ---- decoding ---- */

static int onlyWhiteSpace(const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; i++) {
    if (p[i] != ' ' && p[i] != '\t' && p[i] != '\r' && p[i] != '\n') return 0;
  }
  return 1;
}

asn_dec_rval_t asn_decode(const asn_codec_ctx_t* opt_codec_ctx, enum asn_transfer_syntax syntax,
                          const asn_TYPE_descriptor_t* ctd, void** sptr, const void* buffer, size_t size) {
  asn_TYPE_descriptor_t* td = mutableTd(ctd);
  asn_dec_rval_t rv = {RC_FAIL, 0};
  g_lastError[0] = '\0';
  if (td == NULL || sptr == NULL || (buffer == NULL && size > 0)) {
    setError("nothing to decode");
    return rv;
  }
  /* The decoders measure stack use from the context's address: keep a copy
   * in this frame. */
  asn_codec_ctx_t ctx = {0};
  if (opt_codec_ctx != NULL) ctx = *opt_codec_ctx;
  static const unsigned char empty = 0;
  const unsigned char* data = buffer != NULL ? (const unsigned char*)buffer : &empty;

  v2x_asn_lock();
  switch (syntax) {
    case ATS_UNALIGNED_BASIC_PER:
    case ATS_UNALIGNED_CANONICAL_PER:
      rv = uper_decode_complete(&ctx, td, sptr, data, size);
      if (rv.code == RC_OK && rv.consumed < size) {
        setError("%zu bytes left over after the message (%zu of %zu used)", size - rv.consumed, rv.consumed, size);
        rv.code = RC_FAIL;
      }
      break;
    case ATS_BASIC_XER:
    case ATS_CANONICAL_XER:
      rv = xer_decode(&ctx, td, sptr, data, size);
      if (rv.code == RC_OK && rv.consumed < size && !onlyWhiteSpace(data + rv.consumed, size - rv.consumed)) {
        setError("text left over after the message (%zu of %zu bytes used)", rv.consumed, size);
        rv.code = RC_FAIL;
      }
      break;
    default:
      v2x_asn_unlock();
      setError("transfer syntax %d is not supported", (int)syntax);
      return rv;
  }
  if (rv.code == RC_OK && *sptr != NULL) {
    /* The decoders take values as they come: check the ranges here. */
    ConstraintFailure f;
    if (checkConstraints(td, *sptr, &f) != 0) {
      setError("%s", f.text);
      rv.code = RC_FAIL;
    }
  } else if (rv.code == RC_WMORE && g_lastError[0] == '\0') {
    setError("data end inside the message (%zu bytes)", size);
  } else if (rv.code == RC_FAIL && g_lastError[0] == '\0') {
    setError("malformed data (failed after %zu of %zu bytes)", rv.consumed, size);
  }
  v2x_asn_unlock();
  return rv;
}

/* ---- release and printing ---- */

void v2x_asn_struct_free(const asn_TYPE_descriptor_t* td, void* sptr, enum asn_struct_free_method method) {
  if (td == NULL || sptr == NULL) return;
  v2x_asn_lock();
  mutableTd(td)->free_struct(mutableTd(td), sptr, method == ASFM_FREE_EVERYTHING ? 0 : 1);
  v2x_asn_unlock();
}

int v2x_asn_fprint(FILE* stream, const asn_TYPE_descriptor_t* td, const void* sptr) {
  v2x_asn_lock();
  int rc = asn_fprint(stream, mutableTd(td), sptr);
  v2x_asn_unlock();
  return rc;
}

int v2x_xer_fprint(FILE* stream, const asn_TYPE_descriptor_t* td, const void* sptr) {
  v2x_asn_lock();
  int rc = xer_fprint(stream, mutableTd(td), (void*)sptr);
  v2x_asn_unlock();
  return rc;
}
