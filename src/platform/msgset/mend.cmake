# Corrects known faults in the files that asn1c 0.9.28 generates. Fails if the code to replace does not occur exactly as
# often as expected: the output of another version of asn1c needs a new review.
# usage: cmake -D FOLDER=<generated files> -D LEAF_TYPES=<number of types without members in the modules> -P mend.cmake
cmake_minimum_required(VERSION 3.25)

# mend(VARIABLE LOCATION TIMES OLD NEW): replaces OLD, which must occur TIMES times, by NEW in VARIABLE. LOCATION is the
# text for an error message.
function(mend variable location times old new)
  string(REPLACE "${old}" "" without "${${variable}}")
  string(LENGTH "${${variable}}" before)
  string(LENGTH "${without}" after)
  string(LENGTH "${old}" each)
  math(EXPR found "(${before} - ${after}) / ${each}")
  if(NOT found EQUAL times)
    message(FATAL_ERROR "mend: ${location}: found the code ${found} times instead of ${times}; is this asn1c 0.9.28?")
  endif()
  string(REPLACE "${old}" "${new}" mended "${${variable}}")
  set(${variable} "${mended}" PARENT_SCOPE)
endfunction()

function(mend_file name times old new)
  file(READ ${FOLDER}/${name} text)
  mend(text ${name} ${times} "${old}" "${new}")
  file(WRITE ${FOLDER}/${name} "${text}")
endfunction()

# Programs that include the headers got the C library's warning about _BSD_SOURCE, which nothing needs.
mend_file(asn_system.h 1
  "#ifndef _BSD_SOURCE
#define _BSD_SOURCE /* for snprintf() on some linux systems  */
#endif
"
  "")

# These headers did not compile unless the program included asn_application.h first.
foreach(name asn_codecs ber_decoder ber_tlv_length ber_tlv_tag constr_TYPE constraints der_encoder per_decoder per_encoder
    per_opentype xer_decoder xer_encoder)
  file(READ ${FOLDER}/${name}.h text)
  file(WRITE ${FOLDER}/${name}.h "#include \"asn_application.h\"\n\n${text}")
endforeach()

# A type without members copies the functions of its base type into its descriptor on every call. The copy is a data
# race. It also replaces the type's constraint check by the base type's check, which accepts every value. After the
# correction the copy runs once, before main() and other constructors, and leaves the constraint check unchanged.
set(leaf_types 0)
file(GLOB sources ${FOLDER}/*.c)
foreach(path IN LISTS sources)
  file(READ ${path} text)
  if(NOT text MATCHES "\n([A-Za-z0-9_]+)_inherit_TYPE_descriptor\\(asn_TYPE_descriptor_t")
    continue()
  endif()
  set(function ${CMAKE_MATCH_1}_inherit_TYPE_descriptor)
  string(REGEX REPLACE "_1$" "" type ${CMAKE_MATCH_1})
  if(NOT text MATCHES "td->free_struct    = asn_DEF_([A-Za-z0-9_]+)\\.free_struct")
    message(FATAL_ERROR "mend: ${path}: cannot find the base type")
  endif()
  set(base asn_DEF_${CMAKE_MATCH_1})
  math(EXPR leaf_types "${leaf_types} + 1")
  if(text MATCHES "Replace with underlying type checker")
    mend(text "${path}: base's check" 1
      "\ttd->check_constraints = ${base}.check_constraints;\n\treturn td->check_constraints(td, "
      "\treturn ${base}.check_constraints(td, ")
  endif()
  mend(text "${path}: check" 1 "\ttd->check_constraints = ${base}.check_constraints;\n" "")
  mend(text "${path}: calls" 8 "\t${function}(td);\n" "")
  string(APPEND text
    "\n__attribute__((constructor(101))) static void\n${function}_once(void) {\n\t${function}(&asn_DEF_${type});\n}\n")
  file(WRITE ${path} "${text}")
endforeach()
if(NOT leaf_types EQUAL LEAF_TYPES)
  message(FATAL_ERROR "mend: found ${leaf_types} types without members instead of ${LEAF_TYPES}")
endif()

# At first use a member without a constraint check stored the check of its type, which was a data race, too.
foreach(file constr_CHOICE.c constr_SEQUENCE.c constr_SET_OF.c)
  mend_file(${file} 1 "elm->memb_constraints = elm->type->check_constraints;" ";")
endforeach()

# The constraint check ignored the number of elements in a list.
mend_file(constr_SET_OF.c 1
  "\tconstr = elm->memb_constraints;
	if(!constr) constr = elm->type->check_constraints;
"
  "\tif(td->per_constraints) {
		const asn_per_constraint_t *size = &td->per_constraints->size;
		if((size->flags & APC_CONSTRAINED)
		&& (list->count < size->lower_bound
			|| list->count > size->upper_bound)) {
			ASN__CTFAIL(app_key, td, sptr,
				\"%s: %d elements (%s:%d)\",
				td->name, list->count, __FILE__, __LINE__);
			return -1;
		}
	}

	constr = elm->memb_constraints;
	if(!constr) constr = elm->type->check_constraints;
")

# The constraint check accepted any number as an enumerated value. Check it against the type's table of values.
mend_file(NativeEnumerated.c 1
  "asn_TYPE_descriptor_t asn_DEF_NativeEnumerated = {"
  "static int
NativeEnumerated_constraint(asn_TYPE_descriptor_t *td, const void *sptr,
	asn_app_constraint_failed_f *ctfailcb, void *app_key) {
	asn_INTEGER_specifics_t *specs = (asn_INTEGER_specifics_t *)td->specifics;
	if(!sptr || (specs
	&& !INTEGER_map_value2enum(specs, *(const long *)sptr))) {
		ASN__CTFAIL(app_key, td, sptr, \"%s: no such value (%s:%d)\",
			td->name, __FILE__, __LINE__);
		return -1;
	}
	return 0;
}
asn_TYPE_descriptor_t asn_DEF_NativeEnumerated = {")
mend_file(NativeEnumerated.c 1 "\tasn_generic_no_constraint,\n" "\tNativeEnumerated_constraint,\n")

# The constraint check rejected extensible bit strings that are longer in a newer edition of the message set.
foreach(size VehicleEventFlags:13 ExteriorLights:9 LaneAttributes-Vehicle:8)
  string(REGEX REPLACE "^(.*):(.*)$" "\\1.c;\\2" size ${size})
  list(POP_FRONT size file)
  mend_file(${file} 1 "if((size == ${size}))" "if(size >= ${size})")
endforeach()

# The decoder skipped unknown extension additions in steps of 24 bits, and skipped only the first addition.
mend_file(per_opentype.c 1 "while(per_get_few_bits(pd, 24) >= 0);" "while(per_get_few_bits(pd, 8) >= 0);")
mend_file(constr_SEQUENCE.c 1
  "if(uper_open_type_skip(opt_codec_ctx, pd)) {
					FREEMEM(epres);
					ASN__DECODE_STARVED;
				}
"
  "if(uper_open_type_skip(opt_codec_ctx, pd)) {
					FREEMEM(epres);
					ASN__DECODE_STARVED;
				}
				continue;
")

# The decoder rejected a whole frame with an unknown alternative or enumerated value of a newer edition. Now the decoder
# skips an unknown alternative and leaves the choice empty. It decodes an unknown enumerated value as the first value of
# the type, which means unknown, unavailable or not in use in every extensible type of the message set.
mend_file(constr_CHOICE.c 1
  "\t\tvalue += specs->ext_start;
		if(value >= td->elements_count)
			ASN__DECODE_FAILED;
"
  "\t\tvalue += specs->ext_start;
		if(value >= td->elements_count) {
			_set_present_idx(st, specs->pres_offset,
				specs->pres_size, 0);
			if(uper_open_type_skip(opt_codec_ctx, pd))
				ASN__DECODE_STARVED;
			rv.code = RC_OK;
			rv.consumed = 0;
			return rv;
		}
")
mend_file(NativeEnumerated.c 1
  "\t\tvalue += specs->extension - 1;
		if(value >= specs->map_count)
			ASN__DECODE_FAILED;
"
  "\t\tvalue += specs->extension - 1;
		if(value >= specs->map_count)
			value = 0;
")

# The encoder did not write the final length of 0 after a last fragment of full size (16384 units).
mend_file(per_opentype.c 1
  "\t\ttoGo -= maySave;\n"
  "\t\ttoGo -= maySave;
		if(toGo == 0 && maySave >= 16384 && uper_put_length(po, 0)) {
			FREEMEM(buf);
			return -1;
		}
")
mend_file(OCTET_STRING.c 1
  "\t\tsizeinunits -= maySave;
		assert(!(maySave & 0x07) || !sizeinunits);
"
  "\t\tsizeinunits -= maySave;
		assert(!(maySave & 0x07) || !sizeinunits);
		if(!sizeinunits && maySave >= 16384 && uper_put_length(po, 0))
			ASN__ENCODE_FAILED;
")

# XER: a CHOICE stored which alternative is present only after decoding the alternative. An incomplete alternative
# leaked its memory.
mend_file(constr_CHOICE.c 1
  "\t\t\tassert(_fetch_present_idx(st,
				specs->pres_offset, specs->pres_size) == 0);
			/* Record what we've got */
			_set_present_idx(st,
				specs->pres_offset, specs->pres_size, edx + 1);
"
  "")
mend_file(constr_CHOICE.c 1
  "\t\t\t/* Start/Continue decoding the inner member */
			tmprval = elm->type->xer_decoder("
  "\t\t\t/* Record what to free after a failure */
			_set_present_idx(st,
				specs->pres_offset, specs->pres_size, edx + 1);
			/* Start/Continue decoding the inner member */
			tmprval = elm->type->xer_decoder(")

# XER: the decoder compares a received name with the names of an enumeration. A NUL in the received name made the
# decoder read beyond the end of an enumeration's name.
mend_file(INTEGER.c 1
  "ptr < end; ptr++, name++) {
		if(*ptr != *name)"
  "ptr < end; ptr++, name++) {
		if(*name == 0)
			return 1;
		if(*ptr != *name)")

# XER: a character reference without digits or to NUL aborted the process. Now the decoder treats such a reference as
# text, as it treats other malformed references.
mend_file(OCTET_STRING.c 1
  "\t\t\tassert(val > 0);\n"
  "\t\t\tif(val <= 0) {
				*buf++ = ch;
				continue;
			}
")

# ASN_DEBUG() was an empty function. Without optimization its arguments were computed, and one reads the byte behind a
# buffer that is used up.
mend_file(asn_internal.h 1 "static void ASN_DEBUG(const char *fmt, ...) { (void)fmt; }" "#define ASN_DEBUG(...) ((void)0)")

# A callback in the decoder's context receives each part that a decoder does not know, and decides whether the decoder
# skips it. Without a callback the decoders skip such parts as before.
mend_file(asn_codecs.h 1
  "typedef struct asn_codec_ctx_s {
"
  "typedef enum asn_unknown_kind_e {
	ASN_UNKNOWN_ELEMENT,		/* XER: element */
	ASN_UNKNOWN_ATTRIBUTE,		/* XER: attributes of a known element */
	ASN_UNKNOWN_TEXT,		/* XER: text between elements */
	ASN_UNKNOWN_ADDITION,		/* PER: addition of a SEQUENCE */
	ASN_UNKNOWN_ALTERNATIVE,	/* PER: alternative of a CHOICE */
	ASN_UNKNOWN_VALUE		/* PER: value of an ENUMERATED */
} asn_unknown_kind_t;

typedef struct asn_unknown_s {
	asn_unknown_kind_t kind;
	const struct asn_TYPE_descriptor_s *type; /* type that contains the part; null for attributes */
	const void *data;	/* XER: start tag or text in the decoder's input; PER: null */
	size_t size;		/* XER: bytes at data; PER: octets of the addition or alternative */
	long value;		/* PER: index of the value in the ENUMERATED, from 0 */
} asn_unknown_t;

/* Returns 0 to skip the part. Any other result makes the decoder fail. The pointers are valid during the call. */
typedef int (asn_unknown_f)(const asn_unknown_t *unknown, void *key);

typedef struct asn_codec_ctx_s {
")
mend_file(asn_codecs.h 1
  "\tsize_t  max_stack_size; /* 0 disables stack bounds checking */
"
  "\tsize_t  max_stack_size; /* 0 disables stack bounds checking */
	asn_unknown_f *unknown;	/* null: skip every unknown part */
	void *unknown_key;	/* passed to the callback */
")

foreach(file constr_CHOICE.c constr_SEQUENCE.c constr_SET_OF.c NativeEnumerated.c xer_decoder.c)
  mend_file(${file} 1 "#include <asn_internal.h>\n" "#include <asn_internal.h>\n#include \"v2xmsgset_unknown.h\"\n")
endforeach()

# XER: text and attributes.
mend_file(constr_CHOICE.c 1
  "xer_next_token(&ctx->context, buf_ptr, size, &ch_type);"
  "v2xmsgset_NextToken(opt_codec_ctx, td,
			ctx->phase == 4 ? V2XMSGSET_IN_SKIPPED : ctx->phase ? V2XMSGSET_IN_BODY : V2XMSGSET_AT_START,
			&ctx->context, buf_ptr, size, &ch_type);")
mend_file(constr_SEQUENCE.c 1
  "xer_next_token(&ctx->context, buf_ptr, size,"
  "v2xmsgset_NextToken(opt_codec_ctx, td,
			ctx->phase == 3 ? V2XMSGSET_IN_SKIPPED : ctx->phase ? V2XMSGSET_IN_BODY : V2XMSGSET_AT_START,
			&ctx->context, buf_ptr, size,")
mend_file(constr_SET_OF.c 1
  "xer_next_token(&ctx->context,"
  "v2xmsgset_NextToken(opt_codec_ctx, td, ctx->phase ? V2XMSGSET_IN_BODY : V2XMSGSET_AT_START,
			&ctx->context,")
mend_file(xer_decoder.c 1
  "xer_next_token(&ctx->context, buf_ptr, size,"
  "v2xmsgset_NextToken(opt_codec_ctx, 0, V2XMSGSET_IN_VALUE, &ctx->context, buf_ptr, size,")

# XER: elements.
foreach(file constr_CHOICE.c constr_SEQUENCE.c)
  mend_file(${file} 1
    "\t\t\t\t/*
				 * Check for (XCT_BOTH or XCT_UNKNOWN_BO)"
    "\t\t\t\tif(v2xmsgset_ReportUnknown(opt_codec_ctx, ASN_UNKNOWN_ELEMENT,
					td, buf_ptr, ch_size, 0))
					RETURN(RC_FAIL);
				/*
				 * Check for (XCT_BOTH or XCT_UNKNOWN_BO)")
endforeach()

# PER: additions, alternatives and values. The function that skips an addition or alternative returns its octets.
mend_file(per_opentype.h 1 "int uper_open_type_skip(" "ssize_t uper_open_type_skip(")
mend_file(per_opentype.c 1 "int\nuper_open_type_skip(" "ssize_t\nuper_open_type_skip(")
mend_file(per_opentype.c 1
  "\telse
		return 0;
}

/*
 * Internal functions."
  "\telse
		return rv.consumed / 8;
}

/*
 * Internal functions.")
mend_file(constr_SEQUENCE.c 1
  "if(uper_open_type_skip(opt_codec_ctx, pd)) {
					FREEMEM(epres);
					ASN__DECODE_STARVED;
				}
"
  "octets = uper_open_type_skip(opt_codec_ctx, pd);
				if(octets < 0) {
					FREEMEM(epres);
					ASN__DECODE_STARVED;
				}
				if(v2xmsgset_ReportUnknown(opt_codec_ctx, ASN_UNKNOWN_ADDITION,
						td, 0, octets, 0)) {
					FREEMEM(epres);
					ASN__DECODE_FAILED;
				}
")
mend_file(constr_SEQUENCE.c 1 "\t\tssize_t bmlength;\n" "\t\tssize_t bmlength;\n\t\tssize_t octets;\n")
mend_file(constr_CHOICE.c 1
  "\t\t\tif(uper_open_type_skip(opt_codec_ctx, pd))
				ASN__DECODE_STARVED;
"
  "\t\t\tssize_t octets = uper_open_type_skip(opt_codec_ctx, pd);
			if(octets < 0)
				ASN__DECODE_STARVED;
			if(v2xmsgset_ReportUnknown(opt_codec_ctx, ASN_UNKNOWN_ALTERNATIVE,
					td, 0, octets, 0))
				ASN__DECODE_FAILED;
")
mend_file(NativeEnumerated.c 1
  "\t\t\tvalue = 0;
"
  "\t\t{
			if(v2xmsgset_ReportUnknown(opt_codec_ctx, ASN_UNKNOWN_VALUE,
					td, 0, 0, value))
				ASN__DECODE_FAILED;
			value = 0;
		}
")
