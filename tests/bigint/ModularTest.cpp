// Modular arithmetic: result codes, borders, published powers.
#include <gtest/gtest.h>

#include "bigint/Integer.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

TEST(Modular, RejectsModulusBelowOne) {
    for (const char* modulus : {"0", "-1", "-7"}) {
        for (const char* name : {"mp_addmod", "mp_submod", "mp_mulmod", "mp_exptmod"})
            EXPECT_EQ(Do(name, {"5", "3", modulus}), "-3") << name;
        for (const char* name : {"mp_mod", "mp_sqrmod", "mp_exptmod_d", "mp_invmod"})
            EXPECT_EQ(Do(name, {"5", modulus}, 3), "-3") << name;
    }
}

TEST(Modular, ReturnsResultsFromZeroToBelowModulus) {
    EXPECT_EQ(Do("mp_mod", {"-1", "7"}), "0 6");
    EXPECT_EQ(Do("mp_mod", {"-7", "7"}), "0 0");
    EXPECT_EQ(Do("mp_addmod", {"-5", "-5", "7"}), "0 4");
    EXPECT_EQ(Do("mp_submod", {"3", "5", "7"}), "0 5");
    EXPECT_EQ(Do("mp_mulmod", {"-3", "5", "7"}), "0 6");
    EXPECT_EQ(Do("mp_sqrmod", {"-3", "7"}), "0 2");
    EXPECT_EQ(Do("mp_mulmod", {"0", "5", "7"}), "0 0");
}

TEST(Modular, RejectsNegativeExponent) {
    EXPECT_EQ(Do("mp_exptmod", {"2", "-1", "7"}), "-3");
}

TEST(Modular, PowerWithExponentZeroIsOneEvenForModulusOne) {
    EXPECT_EQ(Do("mp_exptmod", {"5", "0", "7"}), "0 1");
    EXPECT_EQ(Do("mp_exptmod", {"5", "0", "1"}), "0 1");
    EXPECT_EQ(Do("mp_exptmod", {"0", "0", "7"}), "0 1");
    EXPECT_EQ(Do("mp_exptmod_d", {"5", "1"}, 0), "0 1");
    EXPECT_EQ(Do("mp_exptmod", {"5", "3", "1"}), "0 0");
    EXPECT_EQ(Do("mp_exptmod", {"0", "3", "7"}), "0 0");
}

TEST(Modular, ReducesNegativeBase) {
    EXPECT_EQ(Do("mp_exptmod", {"-2", "3", "7"}), "0 6");
    EXPECT_EQ(Do("mp_exptmod_d", {"-2", "7"}, 2), "0 4");
}

TEST(Modular, PowerTakesEvenModulus) {
    EXPECT_EQ(Do("mp_exptmod", {"3", "5", "10"}), "0 3");
    EXPECT_EQ(Do("mp_exptmod", {"3", "64", "1" + std::string(16, '0')}), "0 d6947d55cf3813d1");
}

TEST(Modular, InverseHasSignOfValue) {
    EXPECT_EQ(Do("mp_invmod", {"3", "7"}), "0 5");
    EXPECT_EQ(Do("mp_invmod", {"-3", "7"}), "0 -2");
    EXPECT_EQ(Do("mp_invmod", {"a", "7"}), "0 5");
    EXPECT_EQ(Do("mp_invmod", {"3", "1"}), "0 0");
    EXPECT_EQ(Do("mp_invmod", {"0", "1"}), "0 0");
    EXPECT_EQ(Do("mp_invmod", {"-3", "1"}), "0 0");
}

TEST(Modular, InverseIsUndefinedWithCommonDivisor) {
    EXPECT_EQ(Do("mp_invmod", {"6", "9"}), "-5");
    EXPECT_EQ(Do("mp_invmod", {"0", "7"}), "-5");
    EXPECT_EQ(Do("mp_invmod", {"7", "7"}), "-5");
}

std::string PowerInText(const char* base, const char* exponent, const char* modulus, int radix) {
    Integer b;
    Integer e;
    Integer m;
    mp_read_radix(b, base, radix);
    mp_read_radix(e, exponent, radix);
    mp_read_radix(m, modulus, radix);
    EXPECT_EQ(mp_exptmod(b, e, m, b), MP_SUCCESS);
    std::string text(static_cast<size_t>(mp_count_bits(b)) + 2, '\0');
    mp_toradix(b, text.data(), radix);
    return text.c_str();
}

// The example of Rivest, Shamir and Adleman's article of 1978.
TEST(PublishedPower, MatchesFirstArticleOnPublicKeys) {
    EXPECT_EQ(PowerInText("920", "17", "2773", 10), "948");
    EXPECT_EQ(PowerInText("948", "157", "2773", 10), "920");
}

// The challenge in Scientific American of August 1977, solved in 1994.
TEST(PublishedPower, MatchesChallengeWith129Digits) {
    const char* modulus =
        "114381625757888867669235779976146612010218296721242362562561842935706935245733897830597123"
        "5"
        "63958705058989075147599290026879543541";
    const char* message =
        "200805001301070903002315180419000118050019172105011309190800151919090618010705";
    const char* secret =
        "968696137546220614771409222543558829057599911245743198746951209308162982251457083569314766"
        "2"
        "2883989628013391990551829945157815154";
    const char* key =
        "10669861436857802444286877132892015478070990663393786280122622449663106312591177"
        "4470873340168597462306553968544513277109053606095";
    EXPECT_EQ(PowerInText(message, "9007", modulus, 10), secret);
    EXPECT_EQ(PowerInText(secret, key, modulus, 10), message);
}

// The example of the digital signature standard of 2000 (FIPS 186-2, appendix 5).
TEST(PublishedPower, MatchesSignatureStandard) {
    const char* p =
        "8DF2A494492276AA3D25759BB06869CBEAC0D83AFB8D0CF7CBB8324F0D7882E5D0762FC5B7210EAFC2E9ADAC32"
        "AB7AAC49693DFBF83724C2EC0736EE31C80291";
    const char* g =
        "626D027839EA0A13413163A55B4CB500299D5522956CEFCB3BFF10F399CE2C2E71CB9DE5FA24BABF58E5B79521"
        "925C9CC42E9F6F464B088CC572AF53E6D78802";
    const char* y =
        "19131871D75B1612A819F29D78D1B0D7346F7AA77BB62A859BFD6C5675DA9D212D3A36EF1672EF660B8C7C255C"
        "C0EC74858FBA33F44C06699630A76B030EE333";
    EXPECT_EQ(PowerInText(g, "2070B3223DBA372FDE1C0FFC7B2E3B498B260614", p, 16), y);
    EXPECT_EQ(PowerInText(g, "C773218C737EC8EE993B4F2DED30F48EDACE915F", p, 16), "1");
}

// The prime of 2048 bits of RFC 3526: 2 generates the group of half its size.
TEST(PublishedPower, MatchesGroupOf2048Bits) {
    const std::string p =
        "FFFFFFFFFFFFFFFFC90FDAA22168C234C4C6628B80DC1CD129024E088A67CC74020BBEA63B139B22514A08798E"
        "3404DDEF9519B3CD3A431B302B0A6DF25F14374FE1356D6D51C245E485B576625E7EC6F44C42E9A637ED6B0BFF"
        "5CB6F406B7EDEE386BFB5A899FA5AE9F24117C4B1FE649286651ECE45B3DC2007CB8A163BF0598DA48361C55D3"
        "9A69163FA8FD24CF5F83655D23DCA3AD961C62F356208552BB9ED529077096966D670C354E4ABC9804F1746C08"
        "CA18217C32905E462E36CE3BE39E772C180E86039B2783A2EC07A28FB5C55DF06F4C52C9DE2BCBF69558171839"
        "95497CEA956AE515D2261898FA051015728E5A8AACAA68FFFFFFFFFFFFFFFF";
    Integer half;
    mp_read_radix(half, p.c_str(), 16);
    mp_div_2(half, half);
    std::string text(600, '\0');
    mp_toradix(half, text.data(), 16);
    EXPECT_EQ(PowerInText("2", text.c_str(), p.c_str(), 16), "1");
    std::string minusOne = p;
    minusOne.back() = 'E';
    EXPECT_EQ(PowerInText(minusOne.c_str(), text.c_str(), p.c_str(), 16), minusOne);
}

}  // namespace
