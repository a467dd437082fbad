/*
 * Codec-layer front of the generated message-set codec.
 *
 * The generated runtime is asn1c 0.9.28. This header gives codec sources the
 * calling conventions the rest of the system is written against
 * (asn_encode_to_buffer, asn_decode, transfer syntax numbers, free methods)
 * and makes every call into generated code safe to use from several threads:
 *
 *  - The generated descriptors rewrite themselves on every encode, decode,
 *    print, free and constraint check, so all of these run behind one
 *    process-wide (recursive) lock. The wrappers below take it; code that
 *    calls descriptor functions directly holds it with v2x_asn_lock() /
 *    v2x_asn_unlock() or, in C++, a V2xAsnGuard. Plain data helpers
 *    (asn_set_add, OCTET_STRING_fromBuf, the per-type <Type>_constraint
 *    checkers called with a null descriptor) do not touch descriptors and
 *    need no lock.
 *  - Including this header redirects ASN_STRUCT_FREE,
 *    ASN_STRUCT_FREE_CONTENTS_ONLY, asn_fprint, xer_fprint and
 *    asn_check_constraints to their locked versions.
 *
 * Generated headers leak macros (MIN, CALLOC, FREEMEM, ...): include this
 * header only from codec source files, never from a public header.
 */
#ifndef V2X_ASN_CODEC_H
#define V2X_ASN_CODEC_H

#include <stddef.h>
#include <stdio.h>

#include "asn_application.h"
#include "constr_TYPE.h"
#include "constraints.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Transfer syntaxes, numbered as the callers expect. Only the unaligned PER
 * and XER ones are implemented; the others fail. */
enum asn_transfer_syntax {
  ATS_INVALID = 0,
  ATS_NONSTANDARD_PLAINTEXT = 1,
  ATS_RANDOM = 2,
  ATS_BER = 3,
  ATS_DER = 4,
  ATS_CER = 5,
  ATS_BASIC_OER = 6,
  ATS_CANONICAL_OER = 7,
  ATS_UNALIGNED_BASIC_PER = 8,
  ATS_UNALIGNED_CANONICAL_PER = 9,
  ATS_BASIC_XER = 10,
  ATS_CANONICAL_XER = 11
};

/* How a structure is released. */
enum asn_struct_free_method {
  ASFM_FREE_EVERYTHING = 0, /* the structure itself and everything below it */
  ASFM_FREE_UNDERLYING = 1  /* only what the structure points to */
};

/* The process-wide codec lock (recursive). */
void v2x_asn_lock(void);
void v2x_asn_unlock(void);

/*
 * Encodes *sptr after checking its constraints. Returns in .encoded the
 * number of bytes the whole encoding needs, also when that is more than
 * buffer_size; only the first buffer_size bytes are written then. On failure
 * .encoded is -1 and .failed_type / .structure_ptr name the offending part.
 * opt_codec_ctx is not used by the encoders.
 */
asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* opt_codec_ctx, enum asn_transfer_syntax syntax,
                                    const asn_TYPE_descriptor_t* td, const void* sptr, void* buffer,
                                    size_t buffer_size);

/*
 * Decodes one complete value from buffer. *sptr null: a new structure is
 * allocated and stored there; otherwise the value is decoded into it. The
 * result is RC_OK only when the whole buffer was one value (XER: trailing
 * white space allowed) and the value passes its constraint checks; RC_WMORE
 * when the data end too early; RC_FAIL otherwise. .consumed is in bytes.
 * Whatever was built stays in *sptr in every case: the caller frees it.
 */
asn_dec_rval_t asn_decode(const asn_codec_ctx_t* opt_codec_ctx, enum asn_transfer_syntax syntax,
                          const asn_TYPE_descriptor_t* td, void** sptr, const void* buffer, size_t size);

/* Frees sptr (null is fine) by the given method. */
void v2x_asn_struct_free(const asn_TYPE_descriptor_t* td, void* sptr, enum asn_struct_free_method method);

/* Locked versions of the runtime's printers and constraint check. */
int v2x_asn_fprint(FILE* stream, const asn_TYPE_descriptor_t* td, const void* sptr);
int v2x_xer_fprint(FILE* stream, const asn_TYPE_descriptor_t* td, const void* sptr);
int v2x_asn_check_constraints(const asn_TYPE_descriptor_t* td, const void* sptr, char* errbuf, size_t* errlen);

/* Text of the last failure of asn_encode_to_buffer / asn_decode in this
 * thread ("" after a success). */
const char* v2x_asn_last_error(void);

#ifndef V2X_ASN_CODEC_IMPL
#undef ASN_STRUCT_FREE
#undef ASN_STRUCT_FREE_CONTENTS_ONLY
#define ASN_STRUCT_FREE(asn_DEF, ptr) v2x_asn_struct_free(&(asn_DEF), (ptr), ASFM_FREE_EVERYTHING)
#define ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF, ptr) v2x_asn_struct_free(&(asn_DEF), (ptr), ASFM_FREE_UNDERLYING)
#define asn_fprint v2x_asn_fprint
#define xer_fprint v2x_xer_fprint
#define asn_check_constraints v2x_asn_check_constraints
#endif

#ifdef __cplusplus
}

/* Holds the codec lock for a scope. */
class V2xAsnGuard {
 public:
  V2xAsnGuard() { v2x_asn_lock(); }
  ~V2xAsnGuard() { v2x_asn_unlock(); }
  V2xAsnGuard(const V2xAsnGuard&) = delete;
  V2xAsnGuard& operator=(const V2xAsnGuard&) = delete;
};
#endif

#endif
