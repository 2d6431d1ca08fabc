// The CLI command set: the exact line of every command, played against a scripted server on
// one session, and the argument checks that stop a line before anything is sent.
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "access/cli_session.h"
#include "access/scripted_server.h"
#include "cgp/dataset_text.h"

namespace {

using cgp::CLISession;
using cgp::DataSet;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

DataSet dict() {
  DataSet d = DataSet::dictionary();
  d.set("k", DataSet("v"));
  return d;
}
DataSet arr() {
  DataSet a = DataSet::array();
  a.append(DataSet("a"));
  a.append(DataSet("b"));
  return a;
}

struct Row {
  const char* name;  // the command, as the line begins
  bool data;         // answered with a dataset
  std::function<DataSet(CLISession&)> call;
  std::string line;
};

#define D(call) [](CLISession& s) { return s.call; }
#define V(call)       \
  [](CLISession& s) { \
    s.call;           \
    return DataSet(); \
  }

// Every command at least once; commands with two forms once per form. Each line is written out
// in full, as the server must receive it.
const std::vector<Row>& rows() {
  static const std::vector<Row> all = {
      // No arguments, data.
      {"GetClusterDomainDefaults", true, D(GetClusterDomainDefaults()), "GetClusterDomainDefaults"},
      {"GetAllAccountsDefaults", true, D(GetAllAccountsDefaults()), "GetAllAccountsDefaults"},
      {"GetBanned", true, D(GetBanned()), "GetBanned"},
      {"GetBlacklistedIPs", true, D(GetBlacklistedIPs()), "GetBlacklistedIPs"},
      {"GetClientIPs", true, D(GetClientIPs()), "GetClientIPs"},
      {"GetClusterAccountDefaults", true, D(GetClusterAccountDefaults()),
       "GetClusterAccountDefaults"},
      {"GetClusterAlerts", true, D(GetClusterAlerts()), "GetClusterAlerts"},
      {"GetClusterBanned", true, D(GetClusterBanned()), "GetClusterBanned"},
      {"GetClusterBlacklistedIPs", true, D(GetClusterBlacklistedIPs()), "GetClusterBlacklistedIPs"},
      {"GetClusterClientIPs", true, D(GetClusterClientIPs()), "GetClusterClientIPs"},
      {"GetClusterDirectoryIntegration", true, D(GetClusterDirectoryIntegration()),
       "GetClusterDirectoryIntegration"},
      {"GetClusterIntercept", true, D(GetClusterIntercept()), "GetClusterIntercept"},
      {"GetClusterLANIPs", true, D(GetClusterLANIPs()), "GetClusterLANIPs"},
      {"GetClusterProtection", true, D(GetClusterProtection()), "GetClusterProtection"},
      {"GetClusterRouterTable", true, D(GetClusterRouterTable()), "GetClusterRouterTable"},
      {"GetClusterRules", true, D(GetClusterRules()), "GetClusterRules"},
      {"GetClusterWebUserDefaults", true, D(GetClusterWebUserDefaults()),
       "GetClusterWebUserDefaults"},
      {"GetClusterWhiteHoleIPs", true, D(GetClusterWhiteHoleIPs()), "GetClusterWhiteHoleIPs"},
      {"GetCurrentController", true, D(GetCurrentController()), "GetCurrentController"},
      {"GetDirectoryIntegration", true, D(GetDirectoryIntegration()), "GetDirectoryIntegration"},
      {"GetDomainDefaults", true, D(GetDomainDefaults()), "GetDomainDefaults"},
      {"GetLANIPs", true, D(GetLANIPs()), "GetLANIPs"},
      {"GetProtection", true, D(GetProtection()), "GetProtection"},
      {"GetRouterSettings", true, D(GetRouterSettings()), "GetRouterSettings"},
      {"GetRouterTable", true, D(GetRouterTable()), "GetRouterTable"},
      {"GetServerAlerts", true, D(GetServerAlerts()), "GetServerAlerts"},
      {"GetServerIntercept", true, D(GetServerIntercept()), "GetServerIntercept"},
      {"GetServerRules", true, D(GetServerRules()), "GetServerRules"},
      {"GetServerWebUserDefaults", true, D(GetServerWebUserDefaults()), "GetServerWebUserDefaults"},
      {"GetTempClientIPs", true, D(GetTempClientIPs()), "GetTempClientIPs"},
      {"GetWhiteHoleIPs", true, D(GetWhiteHoleIPs()), "GetWhiteHoleIPs"},
      {"ListClusterSkins", true, D(ListClusterSkins()), "ListClusterSkins"},
      {"ListDomains", true, D(ListDomains()), "ListDomains"},
      {"ListServerSkins", true, D(ListServerSkins()), "ListServerSkins"},
      {"MainDomainName", true, D(MainDomainName()), "MainDomainName"},
      // No arguments, no data.
      {"RefreshOSData", false, V(RefreshOSData()), "RefreshOSData"},
      {"ReloadDirectoryDomains", false, V(ReloadDirectoryDomains()), "ReloadDirectoryDomains"},
      {"Shutdown", false, V(Shutdown()), "Shutdown"},
      // One name, data.
      {"GetAccountAlerts", true, D(GetAccountAlerts("u@d.com")), "GetAccountAlerts u@d.com"},
      {"GetAccountAliases", true, D(GetAccountAliases("u@d.com")), "GetAccountAliases u@d.com"},
      {"GetAccountDefaults", true, D(GetAccountDefaults("d.com")), "GetAccountDefaults d.com"},
      {"GetAccountDefaults", true, D(GetAccountDefaults()), "GetAccountDefaults"},
      {"getAccountEffectiveSettings", true, D(getAccountEffectiveSettings("u@d.com")),
       "getAccountEffectiveSettings u@d.com"},
      {"GetAccountLists", true, D(GetAccountLists("u@d.com")), "GetAccountLists u@d.com"},
      {"GetAccountLocation", true, D(GetAccountLocation("u@d.com")), "GetAccountLocation u@d.com"},
      {"GetAccountRPOP", true, D(GetAccountRPOP("u@d.com")), "GetAccountRPOP u@d.com"},
      {"GetAccountRights", true, D(GetAccountRights("u@d.com")), "GetAccountRights u@d.com"},
      {"GetAccountRules", true, D(GetAccountRules("u@d.com")), "GetAccountRules u@d.com"},
      {"GetAccountSettings", true, D(GetAccountSettings("u@d.com")), "GetAccountSettings u@d.com"},
      {"GetAccountSubscription", true, D(GetAccountSubscription("u@d.com")),
       "GetAccountSubscription u@d.com"},
      {"GetAccountTemplate", true, D(GetAccountTemplate("d.com")), "GetAccountTemplate d.com"},
      {"GetDomainAlerts", true, D(GetDomainAlerts("d.com")), "GetDomainAlerts d.com"},
      {"GetDomainAliases", true, D(GetDomainAliases("d.com")), "GetDomainAliases d.com"},
      {"getDomainEffectiveSettings", true, D(getDomainEffectiveSettings("d.com")),
       "getDomainEffectiveSettings d.com"},
      {"GetDomainLists", true, D(GetDomainLists("d.com")), "GetDomainLists d.com"},
      {"GetDomainLocation", true, D(GetDomainLocation("d.com")), "GetDomainLocation d.com"},
      {"GetDomainRules", true, D(GetDomainRules("d.com")), "GetDomainRules d.com"},
      {"getDomainSettings", true, D(getDomainSettings("d.com")), "getDomainSettings d.com"},
      {"GetEffectiveWebUser", true, D(GetEffectiveWebUser("u@d.com")),
       "GetEffectiveWebUser u@d.com"},
      {"GetForwarder", true, D(GetForwarder("f@d.com")), "GetForwarder f@d.com"},
      {"GetGroup", true, D(GetGroup("g@d.com")), "GetGroup g@d.com"},
      {"GetList", true, D(GetList("l@d.com")), "GetList l@d.com"},
      {"GetMailboxAliases", true, D(GetMailboxAliases("u@d.com")), "GetMailboxAliases u@d.com"},
      {"GetModule", true, D(GetModule("SMTP")), "GetModule SMTP"},
      {"GetSNMPElement", true, D(GetSNMPElement("1.3.6.1")), "GetSNMPElement 1.3.6.1"},
      {"GetWebFilesInfo", true, D(GetWebFilesInfo("u@d.com")), "GetWebFilesInfo u@d.com"},
      {"GetWebUser", true, D(GetWebUser("u@d.com")), "GetWebUser u@d.com"},
      {"GetWebUserDefaults", true, D(GetWebUserDefaults("d.com")), "GetWebUserDefaults d.com"},
      {"GetWebUserDefaults", true, D(GetWebUserDefaults()), "GetWebUserDefaults"},
      {"GetWebUserSession", true, D(GetWebUserSession("s-17")), "GetWebUserSession s-17"},
      // One name, no data.
      {"DeleteAccount", false, V(DeleteAccount("u@d.com")), "DeleteAccount u@d.com"},
      {"deleteDirectoryRecords", false, V(deleteDirectoryRecords("d.com")),
       "deleteDirectoryRecords d.com"},
      {"DeleteForwarder", false, V(DeleteForwarder("f@d.com")), "DeleteForwarder f@d.com"},
      {"DeleteGroup", false, V(DeleteGroup("g@d.com")), "DeleteGroup g@d.com"},
      {"deleteList", false, V(deleteList("l@d.com")), "deleteList l@d.com"},
      {"insertDirectoryRecords", false, V(insertDirectoryRecords("d.com")),
       "insertDirectoryRecords d.com"},
      {"KillWebUserSession", false, V(KillWebUserSession("s-17")), "KillWebUserSession s-17"},
      {"ReleaseSMTPQueue", false, V(ReleaseSMTPQueue("relay.example")),
       "ReleaseSMTPQueue relay.example"},
      {"RemoveClusterAlert", false, V(RemoveClusterAlert("20260101120000")),
       "RemoveClusterAlert 20260101120000"},
      {"RemoveServerAlert", false, V(RemoveServerAlert("20260101120000")),
       "RemoveServerAlert 20260101120000"},
      // An optional name.
      {"ListAccounts", true, D(ListAccounts()), "ListAccounts"},
      {"ListAccounts", true, D(ListAccounts("d.com")), "ListAccounts d.com"},
      {"ListAdminDomains", true, D(ListAdminDomains("d.com")), "ListAdminDomains d.com"},
      {"ListDomainSkins", true, D(ListDomainSkins("d.com")), "ListDomainSkins d.com"},
      {"ListForwarders", true, D(ListForwarders("d.com")), "ListForwarders d.com"},
      {"ListGroups", true, D(ListGroups()), "ListGroups"},
      {"ListLists", true, D(ListLists("d.com")), "ListLists d.com"},
      {"ClearWebUserCache", false, V(ClearWebUserCache()), "ClearWebUserCache"},
      {"ClearWebUserCache", false, V(ClearWebUserCache("d.com")), "ClearWebUserCache d.com"},
      // Keywords between names.
      {"GetAccountInfo", true, D(GetAccountInfo("u@d.com", "LastLogin")),
       "GetAccountInfo u@d.com Key LastLogin"},
      {"GetSubscriberInfo", true, D(GetSubscriberInfo("l@d.com", "s@e.org")),
       "GetSubscriberInfo l@d.com NAME s@e.org"},
      {"GetAccountStat", true, D(GetAccountStat("u@d.com")), "GetAccountStat u@d.com"},
      {"GetAccountStat", true, D(GetAccountStat("u@d.com", "MessagesReceived")),
       "GetAccountStat u@d.com Key MessagesReceived"},
      {"GetDomainStat", true, D(GetDomainStat("d.com", "Logins")),
       "GetDomainStat d.com Key Logins"},
      {"CreateForwarder", false, V(CreateForwarder("f@d.com", "x@e.org")),
       "CreateForwarder f@d.com to x@e.org"},
      {"CreateList", false, V(CreateList("l@d.com", "u@d.com")), "CreateList l@d.com for u@d.com"},
      {"RenameAccount", false, V(RenameAccount("u@d.com", "v@d.com")),
       "RenameAccount u@d.com into v@d.com"},
      {"RenameDomain", false, V(RenameDomain("d.com", "e.com")), "RenameDomain d.com into e.com"},
      {"RenameGroup", false, V(RenameGroup("g@d.com", "h@d.com")),
       "RenameGroup g@d.com into h@d.com"},
      {"RenameList", false, V(RenameList("l@d.com", "m@d.com")), "RenameList l@d.com into m@d.com"},
      {"RemoveAccountAlert", false, V(RemoveAccountAlert("u@d.com", "20260101120000")),
       "RemoveAccountAlert u@d.com ALERT 20260101120000"},
      {"RemoveDomainAlert", false, V(RemoveDomainAlert("d.com", "20260101120000")),
       "RemoveDomainAlert d.com ALERT 20260101120000"},
      {"ResetAccountStat", false, V(ResetAccountStat("u@d.com")), "ResetAccountStat u@d.com"},
      {"ResetDomainStat", false, V(ResetDomainStat("d.com", "Logins")),
       "ResetDomainStat d.com Key Logins"},
      // A dictionary or an array alone.
      {"SetAllAccountsDefaults", false, V(SetAllAccountsDefaults(dict())),
       "SetAllAccountsDefaults {k = v;}"},
      {"SetBanned", false, V(SetBanned(dict())), "SetBanned {k = v;}"},
      {"SetClusterAccountDefaults", false, V(SetClusterAccountDefaults(dict())),
       "SetClusterAccountDefaults {k = v;}"},
      {"SetClusterAlerts", false, V(SetClusterAlerts(dict())), "SetClusterAlerts {k = v;}"},
      {"SetClusterDirectoryIntegration", false, V(SetClusterDirectoryIntegration(dict())),
       "SetClusterDirectoryIntegration {k = v;}"},
      {"SetClusterDomainDefaults", false, V(SetClusterDomainDefaults(dict())),
       "SetClusterDomainDefaults {k = v;}"},
      {"SetClusterIntercept", false, V(SetClusterIntercept(dict())),
       "SetClusterIntercept {k = v;}"},
      {"SetClusterProtection", false, V(SetClusterProtection(dict())),
       "SetClusterProtection {k = v;}"},
      {"SetClusterWebUserDefaults", false, V(SetClusterWebUserDefaults(dict())),
       "SetClusterWebUserDefaults {k = v;}"},
      {"SetDirectoryIntegration", false, V(SetDirectoryIntegration(dict())),
       "SetDirectoryIntegration {k = v;}"},
      {"SetDomainDefaults", false, V(SetDomainDefaults(dict())), "SetDomainDefaults {k = v;}"},
      {"SetProtection", false, V(SetProtection(dict())), "SetProtection {k = v;}"},
      {"SetRouterSettings", false, V(SetRouterSettings(dict())), "SetRouterSettings {k = v;}"},
      {"SetServerAlerts", false, V(SetServerAlerts(dict())), "SetServerAlerts {k = v;}"},
      {"SetServerIntercept", false, V(SetServerIntercept(dict())), "SetServerIntercept {k = v;}"},
      {"SetServerWebUserDefaults", false, V(SetServerWebUserDefaults(dict())),
       "SetServerWebUserDefaults {k = v;}"},
      {"UpdateAllAccountsDefaults", false, V(UpdateAllAccountsDefaults(dict())),
       "UpdateAllAccountsDefaults {k = v;}"},
      {"UpdateClusterAccountDefaults", false, V(UpdateClusterAccountDefaults(dict())),
       "UpdateClusterAccountDefaults {k = v;}"},
      {"UpdateClusterDomainDefaults", false, V(UpdateClusterDomainDefaults(dict())),
       "UpdateClusterDomainDefaults {k = v;}"},
      {"UpdateDomainDefaults", false, V(UpdateDomainDefaults(dict())),
       "UpdateDomainDefaults {k = v;}"},
      {"SetClusterRules", false, V(SetClusterRules(arr())), "SetClusterRules (a,b)"},
      {"SetServerRules", false, V(SetServerRules(arr())), "SetServerRules (a,b)"},
      // A name and a dictionary or an array.
      {"SetAccountAlerts", false, V(SetAccountAlerts("u@d.com", dict())),
       "SetAccountAlerts u@d.com {k = v;}"},
      {"SetAccountDefaults", false, V(SetAccountDefaults("d.com", dict())),
       "SetAccountDefaults d.com {k = v;}"},
      {"SetAccountRPOP", false, V(SetAccountRPOP("u@d.com", dict())),
       "SetAccountRPOP u@d.com {k = v;}"},
      {"SetAccountSettings", false, V(SetAccountSettings("u@d.com", dict())),
       "SetAccountSettings u@d.com {k = v;}"},
      {"SetAccountTemplate", false, V(SetAccountTemplate("d.com", dict())),
       "SetAccountTemplate d.com {k = v;}"},
      {"SetAccountTemplate", false, V(SetAccountTemplate("", dict())),
       "SetAccountTemplate {k = v;}"},
      {"SetDomainAlerts", false, V(SetDomainAlerts("d.com", dict())),
       "SetDomainAlerts d.com {k = v;}"},
      {"SetDomainSettings", false, V(SetDomainSettings("d.com", dict())),
       "SetDomainSettings d.com {k = v;}"},
      {"SetGroup", false, V(SetGroup("g@d.com", dict())), "SetGroup g@d.com {k = v;}"},
      {"SetModule", false, V(SetModule("SMTP", dict())), "SetModule SMTP {k = v;}"},
      {"SetWebUser", false, V(SetWebUser("u@d.com", dict())), "SetWebUser u@d.com {k = v;}"},
      {"SetWebUserDefaults", false, V(SetWebUserDefaults("d.com", dict())),
       "SetWebUserDefaults d.com {k = v;}"},
      {"setMailboxAliases", false, V(setMailboxAliases("u@d.com", dict())),
       "setMailboxAliases u@d.com {k = v;}"},
      {"UpdateAccountDefaults", false, V(UpdateAccountDefaults("d.com", dict())),
       "UpdateAccountDefaults d.com {k = v;}"},
      {"UpdateAccountSettings", false, V(UpdateAccountSettings("u@d.com", dict())),
       "UpdateAccountSettings u@d.com {k = v;}"},
      {"UpdateAccountTemplate", false, V(UpdateAccountTemplate("d.com", dict())),
       "UpdateAccountTemplate d.com {k = v;}"},
      {"UpdateDomainSettings", false, V(UpdateDomainSettings("d.com", dict())),
       "UpdateDomainSettings d.com {k = v;}"},
      {"UpdateList", false, V(UpdateList("l@d.com", dict())), "UpdateList l@d.com {k = v;}"},
      {"UpdateModule", false, V(UpdateModule("SMTP", dict())), "UpdateModule SMTP {k = v;}"},
      {"SetAccountAliases", false, V(SetAccountAliases("u@d.com", arr())),
       "SetAccountAliases u@d.com (a,b)"},
      {"SetAccountRights", false, V(SetAccountRights("u@d.com", arr())),
       "SetAccountRights u@d.com (a,b)"},
      {"SetAccountRules", false, V(SetAccountRules("u@d.com", arr())),
       "SetAccountRules u@d.com (a,b)"},
      {"SetAccountSubscription", false, V(SetAccountSubscription("u@d.com", arr())),
       "SetAccountSubscription u@d.com (a,b)"},
      {"SetDomainAliases", false, V(SetDomainAliases("d.com", arr())),
       "SetDomainAliases d.com (a,b)"},
      {"SetDomainRules", false, V(SetDomainRules("d.com", arr())), "SetDomainRules d.com (a,b)"},
      // Optional settings.
      {"CreateDomain", false, V(CreateDomain("d.com")), "CreateDomain d.com"},
      {"CreateDomain", false, V(CreateDomain("d.com", dict())), "CreateDomain d.com {k = v;}"},
      {"CreateSharedDomain", false, V(CreateSharedDomain("d.com")), "CreateSharedDomain d.com"},
      {"CreateDirectoryDomain", false, V(CreateDirectoryDomain("d.com", dict())),
       "CreateDirectoryDomain d.com {k = v;}"},
      {"CreateGroup", false, V(CreateGroup("g@d.com")), "CreateGroup g@d.com"},
      // Free text written as a dataset string.
      {"PostClusterAlert", false, V(PostClusterAlert("disk \"full\"")),
       "PostClusterAlert \"disk \\\"full\\\"\""},
      {"PostServerAlert", false, V(PostServerAlert("restart")), "PostServerAlert restart"},
      {"SetRouterTable", false, V(SetRouterTable("<a@b> = c\n<d@e> = f")),
       "SetRouterTable \"<a@b> = c\\e<d@e> = f\""},
      {"SetClusterRouterTable", false, V(SetClusterRouterTable("x = y")),
       "SetClusterRouterTable \"x = y\""},
      {"SetAccountPassword", false, V(SetAccountPassword("u@d.com", "new pass")),
       "SetAccountPassword u@d.com TO \"new pass\""},
      {"VerifyAccountPassword", false, V(VerifyAccountPassword("u@d.com", "secret")),
       "VerifyAccountPassword u@d.com PASSWORD secret"},
      {"PostAccountAlert", false, V(PostAccountAlert("u@d.com", "over quota")),
       "PostAccountAlert u@d.com ALERT \"over quota\""},
      {"PostDomainAlert", false, V(PostDomainAlert("d.com", "maintenance\ttonight")),
       "PostDomainAlert d.com ALERT \"maintenance\\ttonight\""},
      {"RemoveAccountSubset", false, V(RemoveAccountSubset("u@d.com", "Contacts")),
       "RemoveAccountSubset u@d.com SUBSET Contacts"},
      // Quoted raw text.
      {"SetBlacklistedIPs", false, V(SetBlacklistedIPs("10.0.0.1\\e10.0.0.2")),
       "SetBlacklistedIPs \"10.0.0.1\\e10.0.0.2\""},
      {"SetClientIPs", false, V(SetClientIPs("192.168.0.0-192.168.0.255")),
       "SetClientIPs \"192.168.0.0-192.168.0.255\""},
      {"SetLANIPs", false, V(SetLANIPs("10.0.0.0-10.255.255.255")),
       "SetLANIPs \"10.0.0.0-10.255.255.255\""},
      {"SetWhiteHoleIPs", false, V(SetWhiteHoleIPs("1.2.3.4")), "SetWhiteHoleIPs \"1.2.3.4\""},
      {"SetClusterBlacklistedIPs", false, V(SetClusterBlacklistedIPs("1.2.3.4")),
       "SetClusterBlacklistedIPs \"1.2.3.4\""},
      {"SetClusterClientIPs", false, V(SetClusterClientIPs("1.2.3.4")),
       "SetClusterClientIPs \"1.2.3.4\""},
      {"SetClusterLANIPs", false, V(SetClusterLANIPs("1.2.3.4")), "SetClusterLANIPs \"1.2.3.4\""},
      {"SetClusterWhiteHoleIPs", false, V(SetClusterWhiteHoleIPs("1.2.3.4")),
       "SetClusterWhiteHoleIPs \"1.2.3.4\""},
      // Skins.
      {"CreateClusterSkin", false, V(CreateClusterSkin("Blue")), "CreateClusterSkin \"Blue\""},
      {"CreateServerSkin", false, V(CreateServerSkin("Blue")), "CreateServerSkin \"Blue\""},
      {"DeleteClusterSkin", false, V(DeleteClusterSkin("Blue")), "DeleteClusterSkin \"Blue\""},
      {"DeleteServerSkin", false, V(DeleteServerSkin("Blue")), "DeleteServerSkin \"Blue\""},
      {"CreateDomainSkin", false, V(CreateDomainSkin("d.com", "Blue")),
       "CreateDomainSkin d.com SKIN \"Blue\""},
      {"DeleteDomainSkin", false, V(DeleteDomainSkin("d.com", "Blue")),
       "DeleteDomainSkin d.com SKIN \"Blue\""},
      {"RenameClusterSkin", false, V(RenameClusterSkin("Blue", "Red")),
       "RenameClusterSkin \"Blue\" INTO \"Red\""},
      {"RenameServerSkin", false, V(RenameServerSkin("Blue", "Red")),
       "RenameServerSkin \"Blue\" INTO \"Red\""},
      {"RenameDomainSkin", false, V(RenameDomainSkin("d.com", "Blue", "Red")),
       "RenameDomainSkin d.com SKIN \"Blue\" INTO \"Red\""},
      {"ListClusterSkinFiles", true, D(ListClusterSkinFiles("Blue")),
       "ListClusterSkinFiles \"Blue\""},
      {"ListServerSkinFiles", true, D(ListServerSkinFiles("Blue")), "ListServerSkinFiles \"Blue\""},
      {"ListDomainSkinFiles", true, D(ListDomainSkinFiles("d.com", "Blue")),
       "ListDomainSkinFiles d.com SKIN \"Blue\""},
      {"ReadClusterSkinFile", true, D(ReadClusterSkinFile("Blue", "logo.gif")),
       "ReadClusterSkinFile \"Blue\" FILE \"logo.gif\""},
      {"ReadServerSkinFile", true, D(ReadServerSkinFile("Blue", "logo.gif")),
       "ReadServerSkinFile \"Blue\" FILE \"logo.gif\""},
      {"ReadDomainSkinFile", true, D(ReadDomainSkinFile("d.com", "Blue", "logo.gif")),
       "ReadDomainSkinFile d.com SKIN \"Blue\" FILE \"logo.gif\""},
      {"StoreClusterSkinFile", false, V(StoreClusterSkinFile("Blue", "a.wssp", "R0lG")),
       "StoreClusterSkinFile \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {"StoreClusterSkinFile", false, V(DeleteClusterSkinFile("Blue", "a.wssp")),
       "StoreClusterSkinFile \"Blue\" FILE \"a.wssp\" DELETE"},
      {"StoreServerSkinFile", false, V(StoreServerSkinFile("Blue", "a.wssp", "R0lG")),
       "StoreServerSkinFile \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {"StoreServerSkinFile", false, V(StoreServerSkinFile("Blue", "a.wssp")),
       "StoreServerSkinFile \"Blue\" FILE \"a.wssp\" DELETE"},
      {"StoreDomainSkinFile", false, V(StoreDomainSkinFile("d.com", "Blue", "a.wssp", "R0lG")),
       "StoreDomainSkinFile d.com SKIN \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {"StoreDomainSkinFile", false, V(DeleteDomainSkinFile("d.com", "Blue", "a.wssp")),
       "StoreDomainSkinFile d.com SKIN \"Blue\" FILE \"a.wssp\" DELETE"},
      // Accounts, mailboxes, lists.
      {"CreateAccount", false, V(CreateAccount("u@d.com")), "CreateAccount u@d.com"},
      {"CreateAccount", false, V(CreateAccount("u@d.com", dict(), true)),
       "CreateAccount u@d.com {k = v;} external"},
      {"CreateAccount", false, V(CreateAccount("u@d.com", DataSet(), true)),
       "CreateAccount u@d.com external"},
      {"CreateMailbox", false, V(CreateMailbox("u@d.com", "Sent")),
       "CreateMailbox u@d.com MAILBOX \"Sent\""},
      {"CreateMailbox", false, V(CreateMailbox("u@d.com", "Sent", "v@d.com")),
       "CreateMailbox u@d.com MAILBOX \"Sent\" AUTH v@d.com"},
      {"CreateMailbox", false, V(CreateMailbox("u@d.com", "say \"hi\"")),
       "CreateMailbox u@d.com MAILBOX \"say \"hi\"\""},  // sent unescaped
      {"DeleteMailbox", false, V(DeleteMailbox("u@d.com", "Old")),
       "DeleteMailbox u@d.com MAILBOX \"Old\""},
      {"DeleteMailbox", false, V(DeleteMailbox("u@d.com", "Old", true, "v@d.com")),
       "DeleteMailbox u@d.com MAILBOXES \"Old\" AUTH v@d.com"},
      {"RenameMailbox", false, V(RenameMailbox("u@d.com", "A", "B")),
       "RenameMailbox u@d.com MAILBOX \"A\" INTO \"B\""},
      {"RenameMailbox", false, V(RenameMailbox("u@d.com", "A", "B", true, "v@d.com")),
       "RenameMailbox u@d.com MAILBOXES \"A\" INTO \"B\" AUTH v@d.com"},
      {"GetMailboxInfo", true, D(GetMailboxInfo("u@d.com", "INBOX")),
       "GetMailboxInfo u@d.com MAILBOX \"INBOX\""},
      {"GetMailboxACL", true, D(GetMailboxACL("u@d.com", "INBOX", "v@d.com")),
       "GetMailboxACL u@d.com MAILBOX \"INBOX\" AUTH v@d.com"},
      {"SetMailboxACL", false, V(SetMailboxACL("u@d.com", "INBOX", dict())),
       "SetMailboxACL u@d.com MAILBOX \"INBOX\" {k = v;}"},
      {"SetMailboxACL", false, V(SetMailboxACL("u@d.com", "INBOX", dict(), "v@d.com")),
       "SetMailboxACL u@d.com MAILBOX \"INBOX\" AUTH v@d.com {k = v;}"},
      {"GetMailboxRights", true, D(GetMailboxRights("u@d.com", "INBOX", "v@d.com")),
       "GetMailboxRights u@d.com MAILBOX \"INBOX\" AUTH v@d.com"},
      {"SetMailboxClass", false, V(SetMailboxClass("u@d.com", "Cal", "IPF.Appointment")),
       "SetMailboxClass u@d.com MAILBOX \"Cal\" CLASS IPF.Appointment"},
      {"SetMailboxClass", false, V(SetMailboxClass("u@d.com", "Cal", "a b", "v@d.com")),
       "SetMailboxClass u@d.com MAILBOX \"Cal\" AUTH v@d.com CLASS \"a b\""},
      {"UpdateMailboxInfo", false, V(UpdateMailboxInfo("u@d.com", "INBOX", dict())),
       "UpdateMailboxInfo u@d.com MAILBOX \"INBOX\" {k = v;}"},
      {"ListMailboxes", true, D(ListMailboxes("u@d.com")), "ListMailboxes u@d.com"},
      {"ListMailboxes", true, D(ListMailboxes("u@d.com", "Ar*", "v@d.com")),
       "ListMailboxes u@d.com FILTER \"Ar*\" AUTH v@d.com"},
      {"ListSubscribers", true, D(ListSubscribers("l@d.com")), "ListSubscribers l@d.com"},
      {"ListSubscribers", true, D(ListSubscribers("l@d.com", "@e.org")),
       "ListSubscribers l@d.com FILTER \"@e.org\""},
      {"List", false, V(List("l@d.com", "subscribe", "s@e.org")), "List l@d.com subscribe s@e.org"},
      {"List", false, V(List("l@d.com", "feed", "s@e.org", true, true)),
       "List l@d.com feed s@e.org silently confirm"},
      {"ProcessBounce", false, V(ProcessBounce("l@d.com", "s@e.org")),
       "ProcessBounce l@d.com FOR s@e.org"},
      {"ProcessBounce", false, V(ProcessBounce("l@d.com", "s@e.org", true)),
       "ProcessBounce l@d.com FATAL FOR s@e.org"},
      {"SetPostingMode", false, V(SetPostingMode("l@d.com", "s@e.org", "MODERATEALL")),
       "SetPostingMode l@d.com FOR s@e.org MODERATEALL"},
      {"Route", true, D(Route("u@d.com")), "Route u@d.com"},
      {"Route", true, D(Route("u@d.com", true)), "Route u@d.com mail"},
      {"DeleteDomain", false, V(DeleteDomain("d.com")), "DeleteDomain d.com"},
      {"DeleteDomain", false, V(DeleteDomain("d.com", true)), "DeleteDomain d.com force"},
      {"CreateWebUserSession", true, D(CreateWebUserSession("u@d.com", "10.1.1.1")),
       "CreateWebUserSession u@d.com ADDRESS 10.1.1.1"},
      {"CreateWebUserSession", true, D(CreateWebUserSession("u@d.com", "10.1.1.1", "Blue")),
       "CreateWebUserSession u@d.com ADDRESS 10.1.1.1 SKIN \"Blue\""},
      // Web files.
      {"GetWebFile", true, D(GetWebFile("u@d.com", "a/b.html")),
       "GetWebFile u@d.com FILE \"a/b.html\""},
      {"GetWebFile", true, D(GetWebFile("u@d.com", "a/b.html", 100, 2048)),
       "GetWebFile u@d.com FILE \"a/b.html\" OFFSET 100 SIZE 2048"},
      {"PutWebFile", false, V(PutWebFile("u@d.com", "a.txt", DataSet::block("SGVsbG8="))),
       "PutWebFile u@d.com FILE \"a.txt\" DATA [SGVsbG8=]"},
      {"PutWebFile", false, V(PutWebFile("u@d.com", "a.txt", 7, DataSet::block("SGVsbG8="))),
       "PutWebFile u@d.com FILE \"a.txt\" OFFSET 7 DATA [SGVsbG8=]"},
      {"PutWebUserInterface", false,
       V(PutWebUserInterface("d.com", "x.wssp", DataSet::block("AA=="))),
       "PutWebUserInterface d.com FILE \"x.wssp\" DATA [AA==]"},
      {"DeleteWebFile", false, V(DeleteWebFile("u@d.com", "a.txt")),
       "DeleteWebFile u@d.com FILE \"a.txt\""},
      {"DeleteWebUserInterface", false, V(DeleteWebUserInterface("d.com", "x.wssp")),
       "DeleteWebUserInterface d.com FILE \"x.wssp\""},
      {"GetWebUserInterface", true, D(GetWebUserInterface("d.com", "x.wssp")),
       "GetWebUserInterface d.com FILE \"x.wssp\""},
      {"ListWebUserInterface", true, D(ListWebUserInterface("d.com", "x.wssp")),
       "ListWebUserInterface d.com FILE \"x.wssp\""},
      {"RenameWebFile", false, V(RenameWebFile("u@d.com", "a.txt", "b.txt")),
       "RenameWebFile u@d.com FILE \"a.txt\" INTO \"b.txt\""},
      {"ListWebFiles", true, D(ListWebFiles("u@d.com")), "ListWebFiles u@d.com"},
      {"ListWebFiles", true, D(ListWebFiles("u@d.com", "pub/")),
       "ListWebFiles u@d.com PATH \"pub/\""},
      // The rest.
      {"WriteLog", false, V(WriteLog(2, "hello world")), "WriteLog 2 \"hello world\""},
      {"RejectQueueMessage", false, V(RejectQueueMessage("12345")), "RejectQueueMessage 12345"},
      {"RejectQueueMessage", false, V(RejectQueueMessage("12345", "NONDN")),
       "RejectQueueMessage 12345 NONDN"},
      {"Quit", false, V(Quit()), "Quit"},
  };
  return all;
}

#undef D
#undef V

// The greeting and a digest login, then every row answered: data rows with 201 and "x".
std::vector<testing_server::Step> scriptFor(const std::vector<Row>& table) {
  std::vector<testing_server::Step> script = {send("200 ready <1.2@host>\r\n"), receive(),
                                              send("200 OK\r\n"), receive(), send("200 OK\r\n")};
  for (const Row& row : table) {
    script.push_back(receive());
    script.push_back(send(row.data ? "201 x\r\n" : "200 OK\r\n"));
  }
  return script;
}

TEST(CliCommands, EveryCommandBuildsItsLine) {
  const std::vector<Row>& table = rows();
  ScriptedServer server(scriptFor(table));
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kDigest);
  session.setReceiveTimeout(5000);
  for (const Row& row : table) {
    SCOPED_TRACE(row.line);
    const DataSet result = row.call(session);
    if (row.data) {
      EXPECT_EQ(result.getText(), "x");
    }
  }
  const std::vector<std::string> lines = server.finish();
  ASSERT_EQ(lines.size(), table.size() + 2);
  for (std::size_t i = 0; i < table.size(); ++i) EXPECT_EQ(lines[i + 2], table[i].line);
}

TEST(CliCommands, TableCoversEveryCommandName) {
  const auto& commands = CLISession::commands();
  std::set<std::string> names;
  for (const auto& c : commands) names.insert(c.name);
  EXPECT_EQ(commands.size(), 214u);
  EXPECT_EQ(names.size(), 214u);
  std::set<std::string> tested;
  for (const Row& row : rows()) {
    tested.insert(row.name);
    EXPECT_EQ(std::string(row.line).rfind(row.name, 0), 0u) << row.line;
    const auto* info = CLISession::findCommand(row.name);
    ASSERT_NE(info, nullptr) << row.name;
    EXPECT_EQ(info->returnsData, row.data) << row.name;
  }
  EXPECT_EQ(tested, names);
  EXPECT_EQ(CLISession::findCommand("getaccountsettings"), nullptr);  // case matters
}

// Each call must throw before anything is sent: the server sees only the login.
TEST(CliCommands, BadArgumentsAreRefusedBeforeSending) {
  const std::vector<std::function<void(CLISession&)>> calls = {
      [](CLISession& s) { s.GetAccountSettings(""); },
      [](CLISession& s) { s.CreateForwarder("f@d.com", ""); },
      [](CLISession& s) { s.CreateMailbox("u@d.com", ""); },
      [](CLISession& s) { s.GetMailboxRights("u@d.com", "INBOX", ""); },
      [](CLISession& s) { s.SetAccountSettings("u@d.com", DataSet::dictionary()); },
      [](CLISession& s) { s.SetAccountSettings("u@d.com", arr()); },
      [](CLISession& s) { s.SetAccountRules("u@d.com", DataSet::array()); },
      [](CLISession& s) { s.SetServerRules(dict()); },
      [](CLISession& s) { s.SetAccountPassword("u@d.com", ""); },
      [](CLISession& s) { s.CreateDomain("d.com", DataSet("text")); },
      [](CLISession& s) { s.PutWebFile("u@d.com", "a", DataSet()); },
      [](CLISession& s) { s.SetPostingMode("l@d.com", "s@e.org", ""); },
      [](CLISession& s) { s.List("l@d.com", "", "s@e.org"); },
      [](CLISession& s) { s.WriteLog(1, ""); },
      // Quoted names are required too: skins, address lists, rename targets, stored data.
      [](CLISession& s) { s.CreateServerSkin(""); },
      [](CLISession& s) { s.RenameServerSkin("o", ""); },
      [](CLISession& s) { s.SetBlacklistedIPs(""); },
      [](CLISession& s) { s.ListServerSkinFiles(""); },
      [](CLISession& s) { s.CreateDomainSkin("d", ""); },
      [](CLISession& s) { s.ReadServerSkinFile("", "f"); },
      [](CLISession& s) { s.StoreServerSkinFile("sk", "f", ""); },
  };
  ScriptedServer server({send("200 ready\r\n"), receive(), send("200 OK\r\n"), receive(),
                         send("200 OK\r\n"), receive(), send("200 OK\r\n")});
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kWebUser);
  session.setReceiveTimeout(5000);
  for (std::size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(i);
    try {
      calls[i](session);
      ADD_FAILURE() << "no error";
    } catch (const kvs::ProtocolException& e) {
      EXPECT_STREQ(e.what(), "invalid or missing argument");
      EXPECT_EQ(dynamic_cast<const cgp::CLIException*>(&e), nullptr);
    }
  }
  session.Quit();
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"AUTH WEBUSER admin pw", "inline", "Quit"}));
}

TEST(CliCommands, DataAnswersAndRefusals) {
  ScriptedServer server(
      {send("200 ready\r\n"), receive(), send("200 OK\r\n"), receive(), send("200 OK\r\n"),
       // 201: the data is on the answer line
       receive(), send("201 {Name = \"x y\"; Count = 3;}\r\n"),
       // 200: the data follows on the next line, here in a later chunk
       receive(), send("200 data follow\r\n"), testing_server::pause(50), send("(d.com,e.com)\r\n"),
       // 200 with its data line in the same chunk
       receive(), send("200 data follow\r\n(a)\r\n"),
       // a refusal
       receive(), send("512 Unknown account  \r\n")});
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kWebUser);
  session.setReceiveTimeout(5000);
  const DataSet settings = session.GetAccountSettings("u@d.com");
  EXPECT_EQ(settings.get("Name").getText(), "x y");
  EXPECT_EQ(settings.get("Count").getText(), "3");
  const DataSet domains = session.ListDomains();
  ASSERT_EQ(domains.count(), 2u);
  EXPECT_EQ(domains.at(1).getText(), "e.com");
  EXPECT_EQ(session.ListAccounts().getText(), "a");  // one-element array reads as its element
  try {
    session.DeleteAccount("u@d.com");
    ADD_FAILURE() << "no error";
  } catch (const cgp::CLIException& e) {
    EXPECT_STREQ(e.what(), "Unknown account");
    EXPECT_EQ(e.getCode(), 512);
  }
}

}  // namespace
