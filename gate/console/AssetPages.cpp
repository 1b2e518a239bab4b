#include "gate/console/AssetPages.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "gate/console/AssetList.h"
#include "gate/http/BodyText.h"

void ServeAsset(HttpExchange& exchange) {
  constexpr std::string_view kFolder = "/assets/";
  const std::string_view path = exchange.path;
  const std::string_view name =
      path.starts_with(kFolder) ? path.substr(kFolder.size()) : "index.html";
  const auto assets = AllAssets();
  const auto found = std::ranges::find(assets, name, &Asset::name);
  if (found == assets.end()) {
    exchange.Answer({404, HttpAnswer{}.contentType, "no such page\n"});
    return;
  }
  // A newer program is asked each time, and says that nothing has changed.
  HttpAnswer answer{200, std::string(found->contentType), ""};
  answer.headers = {{"ETag", std::string(found->tag)}, {"Cache-Control", "no-cache"}};
  if (exchange.ifNoneMatch == found->tag) {
    answer.status = 304;
  } else if (exchange.takesGzip) {
    answer.body = found->gzip;
    answer.isGzip = true;
  } else {
    answer.body = Gunzip(found->gzip);
  }
  exchange.Answer(std::move(answer));
}
