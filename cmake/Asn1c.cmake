# Generates C code from ASN.1 modules with asn1c at configure time and builds it
# as a static library.
#
#   v2x_asn1_library(<target> FILES <a.asn>... [FLAGS <asn1c flags>...])
#
# The code lands in ${CMAKE_CURRENT_BINARY_DIR}/<target>-gen and is regenerated
# only when the modules, the flags, the asn1c binary or this file change (a hash
# kept next to the output decides). Editing a module re-runs configure.
#
# Generated descriptors are patched for one asn1c 0.9.28 fault: on every
# encode, decode, print or free, the generated "inherit" functions overwrite
# the descriptor's constraint checker with the base type's (usually a no-op),
# after which asn_check_constraints() accepts any value. The overwriting lines
# are removed; the constraint functions that used the same assignment to hand
# over to the base checker call it directly instead. The disabled debug trace
# is also turned into a macro, and the runtime gets the fixes listed at
# _v2x_asn1_patch_runtime, _v2x_asn1_patch_extensions (SEQUENCE extension
# additions in PER) and _v2x_asn1_patch_named_bits (shortest form of bit
# strings with named bits) below.

find_program(ASN1C_EXECUTABLE asn1c REQUIRED)

# Replaces the text `old` by `new` in a generated file. A missing `old` stops
# the configuration: another asn1c version needs its patches looked at again.
function(_v2x_asn1_replace file old new)
  file(READ ${file} text)
  string(FIND "${text}" "${old}" at)
  if(at LESS 0)
    get_filename_component(name ${file} NAME)
    message(FATAL_ERROR "asn1c output ${name}: text to patch not found:\n${old}")
  endif()
  string(REPLACE "${old}" "${new}" text "${text}")
  file(WRITE ${file} "${text}")
endfunction()

# Faults of the 0.9.28 runtime (the skeleton files copied next to the
# generated code) that hostile input reaches, fixed where they are.
function(_v2x_asn1_patch_runtime gen_dir)
  # XER enumeration tags are looked up by comparing the tag text with each
  # name, without noticing the name's end: a tag holding a zero byte made the
  # comparison read on past the name. A name that ends first sorts first.
  _v2x_asn1_replace(${gen_dir}/INTEGER.c
    "\t\tif(*ptr != *name)\n\t\t\treturn *(const unsigned char *)ptr"
    "\t\tif(*name == 0)\n\t\t\treturn 1;\n\t\tif(*ptr != *name)\n\t\t\treturn *(const unsigned char *)ptr")

  # XER CHOICE: the alternative was recorded only after its value decoded
  # completely, so a failure inside it left a CHOICE that names nothing and
  # the free operation never reached what had been built below it. Record the
  # alternative before decoding into it.
  _v2x_asn1_replace(${gen_dir}/constr_CHOICE.c
    "\t\t\t/* Start/Continue decoding the inner member */\n"
    "\t\t\t/* Recorded first: a partial value is freed with the CHOICE */\n\t\t\t_set_present_idx(st,\n\t\t\t\tspecs->pres_offset, specs->pres_size, edx + 1);\n\n\t\t\t/* Start/Continue decoding the inner member */\n")
  _v2x_asn1_replace(${gen_dir}/constr_CHOICE.c
    "\t\t\tassert(_fetch_present_idx(st,\n\t\t\t\tspecs->pres_offset, specs->pres_size) == 0);\n"
    "")

  # XER strings: the character reference "&#0;" (or "&#;") names no
  # character; it failed an assertion and otherwise stored a zero byte.
  _v2x_asn1_replace(${gen_dir}/OCTET_STRING.c
    "\t\t\tassert(val > 0);\n"
    "\t\t\tif(val <= 0) return -1;\t/* not a character */\n")

  # PER open types: an empty first piece (length 0) left the piece buffer
  # unallocated, and the runtime then computed an offset from a null pointer.
  # Allocate before the first copy, always at least one byte.
  _v2x_asn1_replace(${gen_dir}/per_opentype.c
    "\t\tif(bufLen + chunk_bytes > bufSize) {\n\t\t\tvoid *ptr;\n\t\t\tbufSize = chunk_bytes + (bufSize << 2);\n"
    "\t\tif(!buf || bufLen + chunk_bytes > bufSize) {\n\t\t\tvoid *ptr;\n\t\t\tbufSize = chunk_bytes + (bufSize << 2) + 1;\n")

  # XER: an empty element ("<elevation/>") reached the value decoders as a
  # null buffer of length zero, on which they computed offsets. Hand them an
  # empty string instead.
  _v2x_asn1_replace(${gen_dir}/xer_decoder.c
    "\tif(body_receiver(struct_key, 0, 0, size > 0) == -1)"
    "\tif(body_receiver(struct_key, \"\", 0, size > 0) == -1)")

  # ENUMERATED: the XER decoder also takes a plain number ("<type>99</type>")
  # and nothing checked it against the enumeration, so a decoded frame could
  # hold a value no encoder writes. The check now wants one of the names.
  _v2x_asn1_replace(${gen_dir}/NativeEnumerated.c
    "asn_TYPE_descriptor_t asn_DEF_NativeEnumerated = {\n" [=[
static int
NativeEnumerated_constraint(asn_TYPE_descriptor_t *td, const void *sptr,
		asn_app_constraint_failed_f *ctfailcb, void *app_key) {
	const long *native = (const long *)sptr;
	if(!native) {
		ASN__CTFAIL(app_key, td, sptr,
			"%s: value not given (%s:%d)", td->name, __FILE__, __LINE__);
		return -1;
	}
	if(td->specifics && !INTEGER_map_value2enum(
			(asn_INTEGER_specifics_t *)td->specifics, *native)) {
		ASN__CTFAIL(app_key, td, sptr,
			"%s: %ld is not one of its values (%s:%d)",
			td->name, *native, __FILE__, __LINE__);
		return -1;
	}
	return 0;
}
asn_TYPE_descriptor_t asn_DEF_NativeEnumerated = {
]=])
  _v2x_asn1_replace(${gen_dir}/NativeEnumerated.c
    "\tNativeInteger_print,\n\tasn_generic_no_constraint,\n"
    "\tNativeInteger_print,\n\tNativeEnumerated_constraint,\n")

  # SEQUENCE OF / SET OF: the constraint check looked at the elements only,
  # never at the list's own SIZE, so the PER decoder's lists (whose length
  # field can count past the upper bound) passed with too many elements and
  # then could not be encoded. Check the SIZE the PER constraints carry.
  _v2x_asn1_replace(${gen_dir}/constr_SET_OF.c "\tconstr = elm->memb_constraints;\n" [=[
	if(td->per_constraints) {
		const asn_per_constraint_t *ct = &td->per_constraints->size;
		int ext = (ct->flags & APC_EXTENSIBLE) != 0;
		if(!ext && (ct->flags & (APC_CONSTRAINED | APC_SEMI_CONSTRAINED))
		&& (list->count < ct->lower_bound
		    || ((ct->flags & APC_CONSTRAINED) && list->count > ct->upper_bound))) {
			ASN__CTFAIL(app_key, td, sptr,
				"%s: %d elements outside SIZE(%ld..%ld) (%s:%d)",
				td->name, list->count, ct->lower_bound,
				ct->upper_bound, __FILE__, __LINE__);
			return -1;
		}
	}

	constr = elm->memb_constraints;
]=])
endfunction()

# UPER extension additions of SEQUENCE (X.691 clause 19): after the root, a
# normally-small length, a bitmap of that many bits, then one open type
# (length, possibly fragmented, and octets) per set bit. The runtime read one
# open type whatever the bitmap said, and skipped an unknown one by reading
# 24 bits at a time, so an addition of any length but a multiple of 3 octets
# failed. Now every announced addition is read: known ones decoded from their
# open type, the others skipped by their length. A bitmap of length 0 or with
# no bit set cannot follow a set extension bit and is refused.
function(_v2x_asn1_patch_extensions gen_dir)
  _v2x_asn1_replace(${gen_dir}/constr_SEQUENCE.c
    "\t\tbmlength = uper_get_nslength(pd);\n\t\tif(bmlength < 0) ASN__DECODE_STARVED;\n"
    "\t\tbmlength = uper_get_nslength(pd);\n\t\tif(bmlength < 0) ASN__DECODE_STARVED;\n\t\tif(bmlength == 0) ASN__DECODE_FAILED;\t/* a bitmap has bits */\n")
  _v2x_asn1_replace(${gen_dir}/constr_SEQUENCE.c
    "\t\tmemset(&epmd, 0, sizeof(epmd));\n" [=[
		/* The extension bit announced at least one addition */
		{
			ssize_t i;
			int any = 0;
			for(i = 0; i < ((bmlength + 7) >> 3); i++)
				any |= epres[i];
			if(!any) {
				FREEMEM(epres);
				ASN__DECODE_FAILED;
			}
		}

		memset(&epmd, 0, sizeof(epmd));
]=])
  _v2x_asn1_replace(${gen_dir}/constr_SEQUENCE.c [=[
		/* Skip over overflow extensions which aren't present
		 * in this system's version of the protocol */
		for(;;) {
			ASN_DEBUG("Getting overflow extensions");
			switch(per_get_few_bits(&epmd, 1)) {
			case -1: break;
			case 0: continue;
			default:
				if(uper_open_type_skip(opt_codec_ctx, pd)) {
					FREEMEM(epres);
					ASN__DECODE_STARVED;
				}
			}
			break;
		}
]=] [=[
		/* Additions this version does not know: one open type
		 * per set bit, skipped whole */
		for(;;) {
			int skipped;
			int bit = per_get_few_bits(&epmd, 1);
			if(bit < 0) break;	/* end of the bitmap */
			if(bit == 0) continue;
			skipped = uper_open_type_skip(opt_codec_ctx, pd);
			if(skipped) {
				FREEMEM(epres);
				if(skipped < 0) ASN__DECODE_STARVED;
				ASN__DECODE_FAILED;
			}
		}
]=])
  # The skip itself: every piece's length, then its octets. An open type
  # holds a complete encoding, which is never empty.
  _v2x_asn1_replace(${gen_dir}/per_opentype.c [=[
	asn_TYPE_descriptor_t s_td;
	asn_dec_rval_t rv;

	s_td.name = "<unknown extension>";
	s_td.uper_decoder = uper_sot_suck;

	rv = uper_open_type_get(ctx, &s_td, 0, 0, pd);
	if(rv.code != RC_OK)
		return -1;
	else
		return 0;
}
]=] [=[
	size_t total = 0;
	int repeat;

	(void)ctx;
	(void)uper_sot_suck;
	do {
		ssize_t chunk_bytes = uper_get_length(pd, -1, &repeat);
		size_t bits;
		if(chunk_bytes < 0) return -1;
		bits = (size_t)chunk_bytes << 3;
		if(!pd->refill && bits > (size_t)(pd->nbits - pd->nboff))
			return -1;	/* the data end inside it */
		while(bits > 0) {
			int step = bits > 24 ? 24 : (int)bits;
			if(per_get_few_bits(pd, step) < 0) return -1;
			bits -= step;
		}
		total += chunk_bytes;
	} while(repeat);
	return total ? 0 : 1;	/* 1: malformed */
}
]=])
  _v2x_asn1_replace(${gen_dir}/per_opentype.h
    "int uper_open_type_skip("
    "/* 0: skipped; -1: the data end inside it; 1: an empty open type */\nint uper_open_type_skip(")
endfunction()

# A BIT STRING with named bits is encoded in PER with its trailing zero bits
# removed, then zero bits added up to the lower bound of its size constraint
# (X.680 22.7, X.691 16): a value and its zero-padded form give the same
# bytes, and a SIZE(8,...) value of 7 or 16 bits whose significant bits fit
# in 8 goes out in the root form. asn1c keeps the names only in the type's
# header (an enum beside the typedef), not in the descriptor, so the types are
# listed here from the headers and the BIT STRING encoder looks them up.
function(_v2x_asn1_patch_named_bits gen_dir)
  file(GLOB gen_c ${gen_dir}/*.c)
  foreach(c ${gen_c})
    file(READ ${c} text)
    if(NOT c MATCHES "/BIT_STRING\\.c$" AND text MATCHES "&asn_DEF_BIT_STRING,")
      message(FATAL_ERROR "asn1c output ${c}: a member of an unnamed BIT STRING type; "
        "define the bit string as a type of its own so that its named bits are known")
    endif()
  endforeach()

  file(GLOB gen_h ${gen_dir}/*.h)
  set(decls "")
  set(entries "")
  foreach(h ${gen_h})
    file(READ ${h} text)
    if(text MATCHES "\ntypedef BIT_STRING_t\t ([A-Za-z0-9_]+)_t;")
      set(name ${CMAKE_MATCH_1})
      if(text MATCHES "} e_${name};")
        string(APPEND decls "extern asn_TYPE_descriptor_t asn_DEF_${name};\n")
        string(APPEND entries "\t&asn_DEF_${name},\n")
      endif()
    endif()
  endforeach()

  set(table_head [=[
/* Bit string types with named bits (listed when the code was generated) */
static asn_TYPE_descriptor_t *const named_bit_types[] = {
]=])
  set(encoder [=[
	0
};

static int
has_named_bits(const asn_TYPE_descriptor_t *td) {
	int i;
	for(i = 0; named_bit_types[i]; i++)
		if(named_bit_types[i] == td) return 1;
	return 0;
}

static asn_enc_rval_t
BIT_STRING_encode_uper_named(asn_TYPE_descriptor_t *td,
		asn_per_constraints_t *constraints, void *sptr,
		asn_per_outp_t *po) {
	const asn_per_constraints_t *pc = constraints ? constraints
				: td->per_constraints;
	const BIT_STRING_t *st = (const BIT_STRING_t *)sptr;
	BIT_STRING_t canon;
	size_t given, bits, bytes;
	long lower = 0;
	asn_enc_rval_t er;

	if(!st || !has_named_bits(td))
		return OCTET_STRING_encode_uper(td, constraints, sptr, po);
	if(st->size < 0 || (!st->buf && st->size))
		ASN__ENCODE_FAILED;
	if(pc && (pc->size.flags & (APC_CONSTRAINED | APC_SEMI_CONSTRAINED)))
		lower = pc->size.lower_bound;

	given = (size_t)st->size * 8 - (st->bits_unused & 0x07);
	if(st->size == 0) given = 0;
	for(bits = given; bits > 0; bits--)
		if(st->buf[(bits - 1) >> 3] & (0x80 >> ((bits - 1) & 7)))
			break;
	if(lower > 0 && bits < (size_t)lower)
		bits = (size_t)lower;

	bytes = (bits + 7) >> 3;
	memset(&canon, 0, sizeof(canon));
	canon.buf = (uint8_t *)CALLOC(1, bytes ? bytes : 1);
	if(!canon.buf) ASN__ENCODE_FAILED;
	if(bytes && st->size)
		memcpy(canon.buf, st->buf,
			bytes < (size_t)st->size ? bytes : (size_t)st->size);
	/* Bits past the given value (unused bits, padding) are zero */
	if(bits > given && (given >> 3) < bytes)
		canon.buf[given >> 3] &= (uint8_t)(0xff00 >> (given & 7));
	if(bytes && (bits & 7))
		canon.buf[bytes - 1] &= (uint8_t)(0xff00 >> (bits & 7));
	canon.size = (int)bytes;
	canon.bits_unused = (int)(bytes * 8 - bits);

	er = OCTET_STRING_encode_uper(td, constraints, &canon, po);
	FREEMEM(canon.buf);
	if(er.encoded < 0) er.structure_ptr = sptr;
	return er;
}

asn_TYPE_descriptor_t asn_DEF_BIT_STRING = {
]=])
  _v2x_asn1_replace(${gen_dir}/BIT_STRING.c
    "\tOCTET_STRING_encode_uper,\t/* Unaligned PER encoder */\n"
    "\tBIT_STRING_encode_uper_named,\t/* Unaligned PER encoder */\n")
  _v2x_asn1_replace(${gen_dir}/BIT_STRING.c
    "asn_TYPE_descriptor_t asn_DEF_BIT_STRING = {\n" "${decls}${table_head}${entries}${encoder}")
endfunction()

function(v2x_asn1_library target)
  cmake_parse_arguments(A "" "" "FILES;FLAGS" ${ARGN})
  if(NOT A_FILES)
    message(FATAL_ERROR "v2x_asn1_library(${target}): no FILES")
  endif()
  list(SORT A_FILES)
  set(gen_dir ${CMAKE_CURRENT_BINARY_DIR}/${target}-gen)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${target}-gen.hash)

  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${A_FILES} ${CMAKE_CURRENT_FUNCTION_LIST_FILE})

  # Everything that can change the output goes into the hash.
  file(SHA256 ${ASN1C_EXECUTABLE} tool_hash)
  file(SHA256 ${CMAKE_CURRENT_FUNCTION_LIST_FILE} self_hash)
  set(hash_input "${A_FLAGS}|${tool_hash}|${self_hash}")
  foreach(f ${A_FILES})
    file(SHA256 ${f} h)
    string(APPEND hash_input "|${f}:${h}")
  endforeach()
  string(SHA256 hash "${hash_input}")

  set(old_hash "")
  if(EXISTS ${stamp})
    file(READ ${stamp} old_hash)
  endif()

  if(NOT old_hash STREQUAL hash OR NOT EXISTS ${gen_dir})
    list(LENGTH A_FILES n_files)
    message(STATUS "asn1c: generating ${target} from ${n_files} modules")
    file(REMOVE ${stamp})
    file(REMOVE_RECURSE ${gen_dir})
    file(MAKE_DIRECTORY ${gen_dir})
    execute_process(
      COMMAND ${ASN1C_EXECUTABLE} ${A_FLAGS} ${A_FILES}
      WORKING_DIRECTORY ${gen_dir}
      RESULT_VARIABLE rc
      OUTPUT_VARIABLE out
      ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "asn1c failed (${rc}):\n${err}")
    endif()

    file(GLOB gen_c ${gen_dir}/*.c)
    set(patched 0)
    foreach(c ${gen_c})
      file(READ ${c} text)
      set(orig "${text}")
      # Constraint functions that delegate to the base type: call it directly.
      string(REGEX REPLACE
        "\ttd->check_constraints = (asn_DEF_[A-Za-z0-9_]+)\\.check_constraints;\n\treturn td->check_constraints\\(td, sptr, ctfailcb, app_key\\);"
        "\treturn \\1.check_constraints(td, sptr, ctfailcb, app_key);" text "${text}")
      # Inherit functions: keep the type's own checker.
      string(REGEX REPLACE "\n\ttd->check_constraints = asn_DEF_[A-Za-z0-9_]+\\.check_constraints;" "" text "${text}")
      if(text MATCHES "td->check_constraints = ")
        message(FATAL_ERROR "asn1c output ${c}: unexpected constraint checker assignment left after patching")
      endif()
      # An extensible SIZE (SIZE(8,...)) admits every size, the ones outside
      # the root in the extension form; the generated checker tests the root
      # size alone and refused them.
      if(text MATCHES "APC_EXTENSIBLE,[ 0-9,]+}\t/\\* \\(SIZE\\(")
        string(REGEX REPLACE "\n\tif\\(\\(size [^\n]*\\)\\) {\n\t\t/\\* Constraint check succeeded \\*/"
          "\n\tif(1 /* extensible SIZE */) {\n\t\t/* Constraint check succeeded */" patched_size "${text}")
        if(patched_size STREQUAL text)
          message(FATAL_ERROR "asn1c output ${c}: extensible SIZE check not found")
        endif()
        set(text "${patched_size}")
      endif()
      if(NOT text STREQUAL orig)
        file(WRITE ${c} "${text}")
        math(EXPR patched "${patched} + 1")
      endif()
    endforeach()
    message(STATUS "asn1c: patched the constraint checker hand-over in ${patched} files")

    # The runtime's disabled debug trace is a function, so its arguments are
    # still evaluated; some of them read one byte past a finished buffer. A
    # macro that drops them keeps every build clean.
    file(READ ${gen_dir}/asn_internal.h text)
    set(debug_fn "static void ASN_DEBUG(const char *fmt, ...) { (void)fmt; }")
    string(FIND "${text}" "${debug_fn}" at)
    if(at LESS 0)
      message(FATAL_ERROR "asn1c output asn_internal.h: disabled ASN_DEBUG definition not found")
    endif()
    string(REPLACE "${debug_fn}" "#define ASN_DEBUG(...) ((void)0)" text "${text}")
    file(WRITE ${gen_dir}/asn_internal.h "${text}")
    _v2x_asn1_patch_runtime(${gen_dir})
    _v2x_asn1_patch_extensions(${gen_dir})
    _v2x_asn1_patch_named_bits(${gen_dir})
    file(WRITE ${stamp} "${hash}")
  endif()

  file(GLOB sources ${gen_dir}/*.c)
  list(FILTER sources EXCLUDE REGEX "/(converter-sample|pdu_collection)\\.c$")
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} SYSTEM PUBLIC ${gen_dir})
  target_compile_definitions(${target} PUBLIC _DEFAULT_SOURCE)
  target_compile_options(${target} PRIVATE -w)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
