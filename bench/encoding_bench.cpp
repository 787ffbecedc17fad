// Conversions between the outside encodings and text, each into a new buffer
// of exact size, beside ICU (with its preflight) and glibc's iconv.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <string>
#include <vector>

#include <keel/keel.h>

#include "textgen.h"

namespace {

using keel::StringC;

struct Input {
    std::string utf8;
    std::u16string utf16;
    std::string latin1;
};

Input makeInput(int kind, size_t bytes) {
    Input in;
    for (uint32_t c : bench::makeCodePoints(kind, bytes)) {
        bench::putUtf8(in.utf8, c);
        if (c < 0x10000) {
            in.utf16 += char16_t(c);
        } else {
            in.utf16 += char16_t(0xD800 + ((c - 0x10000) >> 10));
            in.utf16 += char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
        if (c < 0x100) in.latin1 += static_cast<char>(c);
    }
    return in;
}

// iconv has no preflight: it converts into a buffer of the worst-case size,
// which is then cut to the exact size, as a caller would do.
std::string iconvInto(iconv_t cd, const char* src, size_t n, size_t worst) {
    std::string out(worst, '\0');
    char* in = const_cast<char*>(src);
    char* o = &out[0];
    size_t left = n, room = worst;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    iconv(cd, &in, &left, &o, &room);
    out.resize(worst - room);
    return out;
}

void registerAll() {
    for (int kind = 0; kind < 4; ++kind) {
        for (size_t size : {size_t(64), size_t(64 << 10)}) {
            std::string suffix =
                std::string("/") + bench::kindName(kind) + "/" + std::to_string(size);
            auto input = std::make_shared<Input>(makeInput(kind, size));

            benchmark::RegisterBenchmark(
                ("utf8_to_utf16/keel" + suffix).c_str(), [input](benchmark::State& st) {
                    // The string is the library's text: its internal form is the UTF-8.
                    StringC s(input->utf8.data(), static_cast<uint32_t>(input->utf8.size()),
                              "utf8");
                    for (auto _ : st) {
                        const uint16_t* t = s.textUtf16();
                        benchmark::DoNotOptimize(t);
                        s.releaseUtf16(t);
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf8_to_utf16/icu" + suffix).c_str(), [input](benchmark::State& st) {
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len = 0;
                        u_strFromUTF8(nullptr, 0, &len, input->utf8.data(),
                                      (int32_t)input->utf8.size(), &err);
                        UChar* out = new UChar[len + 1];
                        err = U_ZERO_ERROR;
                        u_strFromUTF8(out, len + 1, &len, input->utf8.data(),
                                      (int32_t)input->utf8.size(), &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf8_to_utf16/iconv" + suffix).c_str(), [input](benchmark::State& st) {
                    iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
                    for (auto _ : st) {
                        std::string out = iconvInto(cd, input->utf8.data(), input->utf8.size(),
                                                    input->utf8.size() * 2 + 2);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });

            benchmark::RegisterBenchmark(
                ("utf16_to_utf8/keel" + suffix).c_str(), [input](benchmark::State& st) {
                    for (auto _ : st) {
                        StringC s(reinterpret_cast<const uint16_t*>(input->utf16.c_str()));
                        const char* t = s.textUtf8();
                        benchmark::DoNotOptimize(t);
                        s.releaseUtf8(t);
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf16_to_utf8/icu" + suffix).c_str(), [input](benchmark::State& st) {
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len = 0;
                        const UChar* src = reinterpret_cast<const UChar*>(input->utf16.c_str());
                        u_strToUTF8(nullptr, 0, &len, src, (int32_t)input->utf16.size(), &err);
                        char* out = new char[len + 1];
                        err = U_ZERO_ERROR;
                        u_strToUTF8(out, len + 1, &len, src, (int32_t)input->utf16.size(), &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf16_to_utf8/iconv" + suffix).c_str(), [input](benchmark::State& st) {
                    iconv_t cd = iconv_open("UTF-8", "UTF-16LE");
                    for (auto _ : st) {
                        std::string out =
                            iconvInto(cd, reinterpret_cast<const char*>(input->utf16.data()),
                                      input->utf16.size() * 2, input->utf16.size() * 3 + 1);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });

            benchmark::RegisterBenchmark(
                ("utf8_to_wchar/keel" + suffix).c_str(), [input](benchmark::State& st) {
                    // The string is the library's text: its internal form is the UTF-8.
                    StringC s(input->utf8.data(), static_cast<uint32_t>(input->utf8.size()),
                              "utf8");
                    for (auto _ : st) {
                        const wchar_t* t = s.textWide();
                        benchmark::DoNotOptimize(t);
                        s.releaseWide(t);
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf8_to_wchar/icu" + suffix).c_str(), [input](benchmark::State& st) {
                    // ICU has no direct UTF-8 to UTF-32 call: through UTF-16, as its users do.
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len = 0;
                        u_strFromUTF8(nullptr, 0, &len, input->utf8.data(),
                                      (int32_t)input->utf8.size(), &err);
                        std::vector<UChar> mid(len + 1);
                        err = U_ZERO_ERROR;
                        u_strFromUTF8(mid.data(), len + 1, &len, input->utf8.data(),
                                      (int32_t)input->utf8.size(), &err);
                        int32_t wlen = 0;
                        err = U_ZERO_ERROR;
                        u_strToUTF32(nullptr, 0, &wlen, mid.data(), len, &err);
                        UChar32* out = new UChar32[wlen + 1];
                        err = U_ZERO_ERROR;
                        u_strToUTF32(out, wlen + 1, &wlen, mid.data(), len, &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("utf8_to_wchar/iconv" + suffix).c_str(), [input](benchmark::State& st) {
                    iconv_t cd = iconv_open("WCHAR_T", "UTF-8");
                    for (auto _ : st) {
                        std::string out = iconvInto(cd, input->utf8.data(), input->utf8.size(),
                                                    input->utf8.size() * 4 + 4);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });

            std::wstring wide;
            for (uint32_t c : bench::makeCodePoints(kind, size)) wide += wchar_t(c);
            auto wideIn = std::make_shared<std::wstring>(wide);
            benchmark::RegisterBenchmark(("wchar_to_utf8/keel" + suffix).c_str(),
                                         [wideIn](benchmark::State& st) {
                                             for (auto _ : st) {
                                                 StringC s(wideIn->c_str());
                                                 benchmark::DoNotOptimize(s.getImpl());
                                             }
                                         });
            benchmark::RegisterBenchmark(
                ("wchar_to_utf8/icu" + suffix).c_str(), [wideIn](benchmark::State& st) {
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len = 0;
                        const UChar32* src = reinterpret_cast<const UChar32*>(wideIn->c_str());
                        u_strFromUTF32(nullptr, 0, &len, src, (int32_t)wideIn->size(), &err);
                        std::vector<UChar> mid(len + 1);
                        err = U_ZERO_ERROR;
                        u_strFromUTF32(mid.data(), len + 1, &len, src, (int32_t)wideIn->size(),
                                       &err);
                        int32_t blen = 0;
                        err = U_ZERO_ERROR;
                        u_strToUTF8(nullptr, 0, &blen, mid.data(), len, &err);
                        char* out = new char[blen + 1];
                        err = U_ZERO_ERROR;
                        u_strToUTF8(out, blen + 1, &blen, mid.data(), len, &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("wchar_to_utf8/iconv" + suffix).c_str(), [wideIn](benchmark::State& st) {
                    iconv_t cd = iconv_open("UTF-8", "WCHAR_T");
                    for (auto _ : st) {
                        std::string out =
                            iconvInto(cd, reinterpret_cast<const char*>(wideIn->data()),
                                      wideIn->size() * sizeof(wchar_t), wideIn->size() * 4 + 1);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });

            if (kind > bench::Latin1Heavy) continue;
            benchmark::RegisterBenchmark(
                ("latin1_in/keel" + suffix).c_str(), [input](benchmark::State& st) {
                    for (auto _ : st) {
                        StringC s(input->latin1.data(), static_cast<uint32_t>(input->latin1.size()),
                                  "iso-8859-1");
                        benchmark::DoNotOptimize(s.getImpl());
                    }
                });
            benchmark::RegisterBenchmark(
                ("latin1_in/icu" + suffix).c_str(), [input](benchmark::State& st) {
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len =
                            ucnv_convert("UTF-8", "ISO-8859-1", nullptr, 0, input->latin1.data(),
                                         (int32_t)input->latin1.size(), &err);
                        char* out = new char[len + 1];
                        err = U_ZERO_ERROR;
                        ucnv_convert("UTF-8", "ISO-8859-1", out, len + 1, input->latin1.data(),
                                     (int32_t)input->latin1.size(), &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("latin1_in/iconv" + suffix).c_str(), [input](benchmark::State& st) {
                    iconv_t cd = iconv_open("UTF-8", "ISO-8859-1");
                    for (auto _ : st) {
                        std::string out = iconvInto(cd, input->latin1.data(), input->latin1.size(),
                                                    input->latin1.size() * 2 + 1);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });
            auto latinUtf8 = std::make_shared<std::string>();
            for (unsigned char c : input->latin1) bench::putUtf8(*latinUtf8, c);
            benchmark::RegisterBenchmark(
                ("latin1_out/keel" + suffix).c_str(), [latinUtf8](benchmark::State& st) {
                    StringC s(latinUtf8->data(), static_cast<uint32_t>(latinUtf8->size()), "utf8");
                    for (auto _ : st) {
                        const char* t = s.textLatin1();
                        benchmark::DoNotOptimize(t);
                        s.releaseLatin1(t);
                    }
                });
            benchmark::RegisterBenchmark(
                ("latin1_out/icu" + suffix).c_str(), [latinUtf8](benchmark::State& st) {
                    for (auto _ : st) {
                        UErrorCode err = U_ZERO_ERROR;
                        int32_t len =
                            ucnv_convert("ISO-8859-1", "UTF-8", nullptr, 0, latinUtf8->data(),
                                         (int32_t)latinUtf8->size(), &err);
                        char* out = new char[len + 1];
                        err = U_ZERO_ERROR;
                        ucnv_convert("ISO-8859-1", "UTF-8", out, len + 1, latinUtf8->data(),
                                     (int32_t)latinUtf8->size(), &err);
                        benchmark::DoNotOptimize(out);
                        delete[] out;
                    }
                });
            benchmark::RegisterBenchmark(
                ("latin1_out/iconv" + suffix).c_str(), [latinUtf8](benchmark::State& st) {
                    iconv_t cd = iconv_open("ISO-8859-1", "UTF-8");
                    for (auto _ : st) {
                        std::string out = iconvInto(cd, latinUtf8->data(), latinUtf8->size(),
                                                    latinUtf8->size() + 1);
                        benchmark::DoNotOptimize(out);
                    }
                    iconv_close(cd);
                });
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
